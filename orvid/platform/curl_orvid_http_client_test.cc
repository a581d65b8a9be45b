#include "orvid/platform/curl_orvid_http_client.h"

#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "orvid/platform/cancellation.h"
#include "orvid/testing/loopback_http_server.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;
using testing::LoopbackHTTPServer;
using testing::LoopbackReply;
using testing::LoopbackRequest;
using testing::makeReply;
using testing::thrown;
using testing::thrownCase;
using Clock = std::chrono::steady_clock;

OrvidHTTPRequest requestTo(const LoopbackHTTPServer& server, const std::string& path, std::string method = "GET") {
  OrvidHTTPRequest request;
  request.method = std::move(method);
  request.url = *URL::parse(server.baseURL() + path);
  request.timeout = 10s;
  return request;
}

// Echoes the method and body it received, with the status named by "X-Status" (200 without).
LoopbackReply echo(const LoopbackRequest& request) {
  return makeReply(std::stoi(request.header("X-Status").value_or("200")), request.body, "application/octet-stream",
                   {{"X-Method", request.method}});
}

TEST(CurlOrvidHTTPClientTest, SendsEachMethodWithItsBodyAndReturnsEveryStatusAsAResponse) {
  LoopbackHTTPServer server;
  for (const char* method : {"GET", "POST", "PUT", "PATCH", "DELETE"}) server.route(method, "/echo", echo);
  server.route("GET", "/file", [](const LoopbackRequest&) {
    return makeReply(200, "twelve bytes", "text/plain", {{"ETag", "\"v1\""}});
  });
  CurlOrvidHTTPClient client;

  struct Case {
    std::string method;
    std::optional<std::string> body;
  };
  for (const Case& c : {Case{"GET", std::nullopt}, Case{"POST", "posted"}, Case{"POST", std::nullopt},
                        Case{"PATCH", "{\"a\":1}"}, Case{"DELETE", std::nullopt}}) {
    OrvidHTTPRequest request = requestTo(server, "/echo", c.method);
    if (c.body) request.body = bytesFromString(*c.body);
    OrvidHTTPResponse response = client.data(request);
    EXPECT_EQ(response.statusCode, 200) << c.method;
    EXPECT_EQ(response.headerValue("x-method"), c.method);
    EXPECT_EQ(stringFromBytes(response.body), c.body.value_or("")) << c.method;
  }
  auto received = server.requests();
  ASSERT_EQ(received.size(), 5u);
  EXPECT_EQ(received[1].body, "posted");
  EXPECT_EQ(received[2].header("Content-Length"), "0");

  OrvidHTTPResponse head = client.data(requestTo(server, "/file", "HEAD"));
  EXPECT_TRUE(head.body.empty());
  EXPECT_EQ(head.headerValue("etag"), "\"v1\"");
  EXPECT_EQ(server.requests().back().method, "HEAD");

  for (int status : {201, 401, 503}) {
    OrvidHTTPRequest request = requestTo(server, "/echo", "POST");
    request.setHeader("X-Status", std::to_string(status));
    request.body = bytesFromString("{\"status\":" + std::to_string(status) + "}");
    OrvidHTTPResponse response = client.data(request);
    EXPECT_EQ(response.statusCode, status);
    EXPECT_EQ(response.body, *request.body);
  }
}

TEST(CurlOrvidHTTPClientTest, CarriesHeaderFieldsAndLargeBodiesIntactBothWays) {
  LoopbackHTTPServer server;
  server.route("POST", "/echo", echo);
  server.route("GET", "/big", [](const LoopbackRequest&) {
    std::string body(12 * 1024 * 1024, '\0');
    for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>('a' + i % 23);
    return makeReply(200, body, "text/plain");
  });
  CurlOrvidHTTPClient client;

  OrvidHTTPRequest upload = requestTo(server, "/echo", "POST");
  upload.headers = {{"Authorization", "Bearer sk-test"},
                    {"Content-Type", "application/octet-stream"},
                    {"anthropic-version", "2023-06-01"}};
  upload.body = Bytes(9 * 1024 * 1024 + 7);
  for (std::size_t i = 0; i < upload.body->size(); ++i) (*upload.body)[i] = static_cast<std::uint8_t>(i * 31 % 251);
  OrvidHTTPResponse echoed = client.data(upload);
  EXPECT_EQ(echoed.body.size(), upload.body->size());
  EXPECT_TRUE(echoed.body == *upload.body);
  EXPECT_EQ(echoed.headerValue("X-METHOD"), "POST");
  EXPECT_EQ(echoed.headerValue("content-type"), "application/octet-stream");
  const LoopbackRequest received = server.requests().at(0);
  EXPECT_EQ(received.header("authorization"), "Bearer sk-test");
  EXPECT_EQ(received.header("Anthropic-Version"), "2023-06-01");
  // A large body goes out at once, without waiting for "100 Continue".
  EXPECT_EQ(received.header("Expect"), std::nullopt);

  OrvidHTTPResponse downloaded = client.data(requestTo(server, "/big"));
  ASSERT_EQ(downloaded.body.size(), 12u * 1024 * 1024);
  EXPECT_EQ(downloaded.body[23], 'a');
  EXPECT_EQ(downloaded.body.back(), static_cast<std::uint8_t>('a' + (12 * 1024 * 1024 - 1) % 23));
}

TEST(CurlOrvidHTTPClientTest, FollowsRedirectsAndReportsTheFinalURL) {
  LoopbackHTTPServer server;
  server.route("POST", "/old", [](const LoopbackRequest&) {
    return makeReply(303, "", "text/plain", {{"Location", "/new"}, {"X-Hop", "first"}});
  });
  server.route("GET", "/new", [](const LoopbackRequest&) {
    return makeReply(200, "moved", "text/plain", {{"X-Hop", "second"}});
  });
  CurlOrvidHTTPClient client;
  OrvidHTTPRequest request = requestTo(server, "/old", "POST");
  request.body = bytesFromString("form");
  request.setHeader("Authorization", "Bearer same-origin");
  OrvidHTTPResponse response = client.data(request);
  EXPECT_EQ(response.statusCode, 200);
  EXPECT_EQ(stringFromBytes(response.body), "moved");
  EXPECT_EQ(response.url.path(), "/new");
  // Only the final answer's header fields are kept.
  EXPECT_EQ(response.headerValue("X-Hop"), "second");
  // 303 continues as a GET without the body; the same origin keeps its credentials.
  auto received = server.requests();
  ASSERT_EQ(received.size(), 2u);
  EXPECT_EQ(received[1].method, "GET");
  EXPECT_EQ(received[1].body, "");
  EXPECT_EQ(received[1].header("Authorization"), "Bearer same-origin");
}

TEST(CurlOrvidHTTPClientTest, NeverCarriesCredentialsToAnotherOrigin) {
  // 127.0.0.1 and localhost are different hosts to the client, as another port is.
  LoopbackHTTPServer first;
  LoopbackHTTPServer second;
  second.route("POST", "/landing", [](const LoopbackRequest&) { return makeReply(200, "landed"); });
  const std::string firstPort = std::to_string(*URL::parse(first.baseURL())->port());
  const std::string otherHost = "http://localhost:" + firstPort + "/landing";
  const std::string otherPort = second.baseURL() + "/landing";

  struct Case {
    const char* name;
    std::string target;
    std::vector<OrvidHTTPHeader> headers;
    std::string userInfo;
    bool refused;
  };
  const Case cases[] = {
      {"x-api-key to another host", otherHost, {{"x-api-key", "sk-SECRET"}}, "", true},
      {"custom header to another port", otherPort, {{"X-Goog-Api-Key", "SECRET"}}, "", true},
      {"user information to another port", otherPort, {}, "user:SECRET@", true},
      {"plain request to another port", otherPort, {{"Accept", "application/json"}}, "", false},
  };
  CurlOrvidHTTPClient client;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    first.route("POST", "/start", [target = c.target](const LoopbackRequest&) {
      return makeReply(307, "", "text/plain", {{"Location", target}});
    });
    OrvidHTTPRequest request;
    request.method = "POST";
    request.url = *URL::parse("http://" + c.userInfo + "127.0.0.1:" + firstPort + "/start");
    request.headers = c.headers;
    request.body = bytesFromString("{}");
    auto secondBefore = second.requests().size();
    auto firstBefore = first.requests().size();
    if (c.refused) {
      auto error = thrown<OrvidHTTPError>([&] { client.data(request); });
      ASSERT_TRUE(error) << "redirect followed";
      EXPECT_EQ(error->errorCase(), OrvidHTTPError::Case::redirectRefused);
      EXPECT_EQ(std::string(error->what()).find("SECRET"), std::string::npos);
      EXPECT_EQ(second.requests().size(), secondBefore);
      EXPECT_EQ(first.requests().size(), firstBefore + 1);  // only the request that was redirected
    } else {
      OrvidHTTPResponse response = client.data(request);
      EXPECT_EQ(stringFromBytes(response.body), "landed");
      ASSERT_EQ(second.requests().size(), secondBefore + 1);
      EXPECT_EQ(second.requests().back().method, "POST");  // 307 repeats the method and body
      EXPECT_EQ(second.requests().back().body, "{}");
    }
  }
}

TEST(CurlOrvidHTTPClientTest, StopsWaitingForASilentServerOnItsTimeoutOrAStopFromAnotherThread) {
  LoopbackHTTPServer server;
  server.route("GET", "/slow", [](const LoopbackRequest&) {
    LoopbackReply reply = makeReply(200, "late");
    reply.delay = 30s;
    return reply;
  });
  CurlOrvidHTTPClient client;
  OrvidHTTPRequest request = requestTo(server, "/slow");
  request.timeout = 300ms;
  auto start = Clock::now();
  EXPECT_EQ(thrownCase<OrvidHTTPError>([&] { client.data(request); }), OrvidHTTPError::Case::timedOut);
  EXPECT_GE(Clock::now() - start, 300ms);
  EXPECT_LT(Clock::now() - start, 5s);

  std::stop_source source;
  auto pending = std::async(std::launch::async, [&] { return client.data(requestTo(server, "/slow"), source.get_token()); });
  ASSERT_TRUE(server.waitForRequests(2, 10s));
  auto stopped = Clock::now();
  source.request_stop();
  ASSERT_EQ(pending.wait_for(5s), std::future_status::ready);
  EXPECT_LT(Clock::now() - stopped, 1s);
  EXPECT_THROW(pending.get(), CancellationError);
  // An already stopped token sends nothing.
  EXPECT_THROW(client.data(requestTo(server, "/slow"), source.get_token()), CancellationError);
  EXPECT_FALSE(server.waitForRequests(3, 100ms));
}

TEST(CurlOrvidHTTPClientTest, ReportsTransportFailuresByCase) {
  CurlOrvidHTTPClient client;
  OrvidHTTPRequest refused;  // a port nobody listens on any more
  {
    LoopbackHTTPServer closed;
    refused = requestTo(closed, "/gone");
  }
  EXPECT_EQ(thrownCase<OrvidHTTPError>([&] { client.data(refused); }), OrvidHTTPError::Case::cannotConnectToHost);

  LoopbackHTTPServer server;
  server.route("GET", "/drop", [](const LoopbackRequest&) {
    LoopbackReply reply = makeReply(200, std::string(64 * 1024, 'z'), "application/octet-stream");
    reply.dropConnection = true;
    return reply;
  });
  EXPECT_EQ(thrownCase<OrvidHTTPError>([&] { client.data(requestTo(server, "/drop")); }),
            OrvidHTTPError::Case::networkConnectionLost);

  OrvidHTTPRequest ftp;
  ftp.url = *URL::parse("ftp://127.0.0.1/file");
  EXPECT_EQ(thrownCase<OrvidHTTPError>([&] { client.data(ftp); }), OrvidHTTPError::Case::badURL);
}

TEST(CurlOrvidHTTPClientTest, ServesSeveralThreadsAtOnce) {
  LoopbackHTTPServer server;
  server.route("POST", "/echo", echo);
  CurlOrvidHTTPClient client;
  std::vector<std::future<bool>> workers;
  for (int worker = 0; worker < 4; ++worker) {
    workers.push_back(std::async(std::launch::async, [&, worker] {
      for (int i = 0; i < 5; ++i) {
        OrvidHTTPRequest request = requestTo(server, "/echo", "POST");
        std::string text = "worker " + std::to_string(worker) + " request " + std::to_string(i);
        request.body = bytesFromString(text);
        if (stringFromBytes(client.data(request).body) != text) return false;
      }
      return true;
    }));
  }
  for (auto& worker : workers) {
    ASSERT_EQ(worker.wait_for(30s), std::future_status::ready);
    EXPECT_TRUE(worker.get());
  }
  EXPECT_EQ(server.requests().size(), 20u);
}

}  // namespace
}  // namespace orvid
