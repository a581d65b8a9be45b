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
  EXPECT_EQ(request.headers, (std::vector<OrvidHTTPHeader>{{"Authorization", "Bearer new"}, {"X-Trace", "1"}}));
  EXPECT_EQ(request.headerValue("x-trace"), "1");
  EXPECT_EQ(request.headerValue("Accept"), std::nullopt);
}

TEST(InMemoryOrvidHTTPClientTest, RecordsRequestsAndAStoppedTokenCancelsWithoutRecording) {
  auto client = InMemoryOrvidHTTPClient::answering(201, bytesFromString("made"), {{"Location", "/x/1"}});
  OrvidHTTPRequest request;
  request.url = *URL::parse("https://api.example.com/x");
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(client->data(request, stopped.get_token()), CancellationError);
  EXPECT_TRUE(client->requests().empty());

  OrvidHTTPResponse response = client->data(request);
  EXPECT_EQ(response.statusCode, 201);
  EXPECT_EQ(stringFromBytes(response.body), "made");
  EXPECT_EQ(response.url, request.url);
  EXPECT_EQ(response.headerValue("location"), "/x/1");
  EXPECT_EQ(client->requests(), std::vector<OrvidHTTPRequest>{request});
}

}  // namespace
}  // namespace orvid
