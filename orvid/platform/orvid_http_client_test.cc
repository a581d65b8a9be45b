#include "orvid/platform/orvid_http_client.h"

#include <gtest/gtest.h>

#include "orvid/platform/cancellation.h"
#include "orvid/platform/in_memory_orvid_http_client.h"

namespace orvid {
namespace {

TEST(OrvidHTTPRequestTest, SetHeaderReplacesEveryFieldOfTheSameNameInAnyCase) {
  OrvidHTTPRequest request;
  request.headers = {{"authorization", "Bearer old"}, {"X-Trace", "1"}, {"AUTHORIZATION", "Bearer older"}};
  request.setHeader("Authorization", "Bearer new");
  EXPECT_EQ(request.headers,
            (std::vector<OrvidHTTPHeader>{{"Authorization", "Bearer new"}, {"X-Trace", "1"}}));
  request.setHeader("Content-Type", "application/json");
  EXPECT_EQ(request.headerValue("content-type"), "application/json");
  EXPECT_EQ(request.headerValue("x-trace"), "1");
  EXPECT_EQ(request.headerValue("Accept"), std::nullopt);
}

TEST(OrvidHTTPResponseTest, SuccessIsExactlyTheTwoHundreds) {
  struct Case {
    int status;
    bool success;
  };
  for (Case c : {Case{199, false}, Case{200, true}, Case{204, true}, Case{299, true}, Case{300, false},
                 Case{401, false}}) {
    OrvidHTTPResponse response;
    response.statusCode = c.status;
    EXPECT_EQ(response.isSuccess(), c.success) << c.status;
  }
}

TEST(OrvidHTTPErrorTest, MessageIsTheSentenceFollowedByTheDetail) {
  EXPECT_STREQ(OrvidHTTPError::timedOut("").what(), "The request timed out.");
  EXPECT_STREQ(OrvidHTTPError::cannotConnectToHost("Connection refused").what(),
               "Could not connect to the server. (Connection refused)");
  EXPECT_EQ(OrvidHTTPError::networkConnectionLost("x").errorCase(), OrvidHTTPError::Case::networkConnectionLost);
  EXPECT_EQ(OrvidHTTPError::timedOut("a"), OrvidHTTPError::timedOut("a"));
  EXPECT_FALSE(OrvidHTTPError::timedOut("a") == OrvidHTTPError::timedOut("b"));
  EXPECT_FALSE(OrvidHTTPError::timedOut("a") == OrvidHTTPError::badURL("a"));
}

TEST(InMemoryOrvidHTTPClientTest, RecordsRequestsAndFillsTheAnswersURL) {
  auto client = InMemoryOrvidHTTPClient::answering(201, bytesFromString("made"), {{"Location", "/x/1"}});
  OrvidHTTPRequest request;
  request.method = "POST";
  request.url = *URL::parse("https://api.example.com/x");
  request.body = bytesFromString("{}");
  OrvidHTTPResponse response = client->data(request);
  EXPECT_EQ(response.statusCode, 201);
  EXPECT_EQ(stringFromBytes(response.body), "made");
  EXPECT_EQ(response.url, request.url);
  EXPECT_EQ(response.headerValue("location"), "/x/1");
  ASSERT_EQ(client->requests().size(), 1u);
  EXPECT_EQ(client->requests()[0], request);
}

TEST(InMemoryOrvidHTTPClientTest, StoppedTokenThrowsCancellationWithoutRecording) {
  int calls = 0;
  InMemoryOrvidHTTPClient client([&](const OrvidHTTPRequest&, std::stop_token) {
    ++calls;
    return OrvidHTTPResponse{};
  });
  std::stop_source source;
  source.request_stop();
  EXPECT_THROW(client.data(OrvidHTTPRequest{}, source.get_token()), CancellationError);
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(client.requests().empty());
}

}  // namespace
}  // namespace orvid
