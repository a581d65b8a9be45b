#include "orvid/platform/curl_orvid_http_client.h"

#include <chrono>
#include <future>

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
  for (const char* method : {"GET", "POST", "PATCH"}) server.route(method, "/echo", echo);
  CurlOrvidHTTPClient client;
  for (const auto& [method, body] : std::vector<std::pair<std::string, std::optional<std::string>>>{
           {"GET", std::nullopt}, {"POST", "posted"}, {"POST", std::nullopt}, {"PATCH", "{\"a\":1}"}}) {
    OrvidHTTPRequest request = requestTo(server, "/echo", method);
    if (body) request.body = bytesFromString(*body);
    OrvidHTTPResponse response = client.data(request);
    EXPECT_EQ(response.headerValue("x-method"), method);
    EXPECT_EQ(stringFromBytes(response.body), body.value_or("")) << method;
  }
  EXPECT_EQ(server.requests().at(2).header("Content-Length"), "0");

  OrvidHTTPRequest failing = requestTo(server, "/echo", "POST");
  failing.setHeader("X-Status", "503");
  failing.body = bytesFromString("{\"status\":503}");
  EXPECT_EQ(client.data(failing).statusCode, 503);
}

TEST(CurlOrvidHTTPClientTest, CarriesHeaderFieldsAndLargeBodiesIntactBothWays) {
  LoopbackHTTPServer server;
  server.route("POST", "/echo", echo);
  CurlOrvidHTTPClient client;

  OrvidHTTPRequest upload = requestTo(server, "/echo", "POST");
  upload.headers = {{"Authorization", "Bearer sk-test"}, {"anthropic-version", "2023-06-01"}};
  upload.body = Bytes(9 * 1024 * 1024 + 7);
  for (std::size_t i = 0; i < upload.body->size(); ++i) (*upload.body)[i] = static_cast<std::uint8_t>(i * 31 % 251);
  EXPECT_TRUE(client.data(upload).body == *upload.body);
  const LoopbackRequest received = server.requests().at(0);
  EXPECT_EQ(received.header("Anthropic-Version"), "2023-06-01");
  // A large body goes out at once, without waiting for "100 Continue".
  EXPECT_EQ(received.header("Expect"), std::nullopt);
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

  struct Case { const char* name; std::string target; std::vector<OrvidHTTPHeader> headers; std::string userInfo;
                bool refused; };
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
  // A port nobody listens on any more.
  const OrvidHTTPRequest refused = [] { return requestTo(LoopbackHTTPServer(), "/gone"); }();
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
  for (auto& worker : workers) EXPECT_TRUE(worker.get());
}

}  // namespace
}  // namespace orvid
