#include "orvid/transcription/realtime/beast_orvid_websocket_connector.h"

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/platform/cancellation.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/loopback_websocket_server.h"
#include "orvid/testing/scoped_environment_variable.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

using testing::LoopbackWebSocketServer;
using testing::thrown;
using Case = OrvidWebSocketError::Case;
using namespace std::chrono_literals;

OrvidHTTPRequest requestFor(const std::string& url, std::chrono::milliseconds timeout = 10s) {
  OrvidHTTPRequest request;
  request.url = *URL::parse(url);
  request.timeout = timeout;
  return request;
}

std::string text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// A one-shot signal between a test and a server handler.
class Event {
 public:
  void set() {
    std::lock_guard lock(mutex_);
    set_ = true;
    changed_.notify_all();
  }
  bool wait(std::chrono::seconds limit = 10s) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return set_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};

TEST(BeastOrvidWebSocketConnectorTest, CarriesTheRequestAndFramesOfBothKindsBothWays) {
  std::promise<std::vector<LoopbackWebSocketServer::Message>> received;
  std::promise<std::string> opening;
  LoopbackWebSocketServer server([&](LoopbackWebSocketServer::Peer& peer) {
    opening.set_value(peer.target() + " " + peer.header("Authorization").value_or("-"));
    peer.sendText("{}");
    peer.sendBinary("");
    peer.sendBinary(std::string("\x00\xff", 2));
    std::vector<LoopbackWebSocketServer::Message> messages;
    for (int i = 0; i < 20; ++i) messages.push_back(peer.receive().value_or(LoopbackWebSocketServer::Message{}));
    received.set_value(messages);
    peer.close(4000);
  });
  auto request = requestFor(server.url("/v1/realtime?intent=transcription"));
  request.headers = {{"Authorization", "Bearer k"}};
  auto connection = BeastOrvidWebSocketConnector().connect(request);
  EXPECT_EQ(opening.get_future().get(), "/v1/realtime?intent=transcription Bearer k");

  EXPECT_EQ(text(connection->receive()), "{}");
  EXPECT_EQ(connection->receive(), Bytes{});
  EXPECT_EQ(connection->receive(), (Bytes{0x00, 0xff}));
  // Senders on two threads while nobody reads: every frame arrives whole.
  auto sendAll = [&](bool binary) {
    for (int i = 0; i < 10; ++i) {
      const std::string payload = (binary ? "b" : "t") + std::to_string(i) + std::string(5000, 'x');
      if (binary) {
        connection->send(Bytes(payload.begin(), payload.end()));
      } else {
        connection->send(std::string_view(payload));
      }
    }
  };
  std::thread binarySender(sendAll, true);
  sendAll(false);
  binarySender.join();
  auto messages = received.get_future().get();
  int texts = 0;
  for (const auto& message : messages) {
    EXPECT_EQ(message.payload.size(), 5002u);
    EXPECT_EQ(message.text, message.payload.front() == 't');
    texts += message.text;
  }
  EXPECT_EQ(texts, 10);
  auto closed = thrown<OrvidWebSocketError>([&] { connection->receive(); });
  ASSERT_TRUE(closed);
  EXPECT_EQ(closed->errorCase(), Case::closedByPeer);
  EXPECT_EQ(closed->closeCode(), 4000);
}

TEST(BeastOrvidWebSocketConnectorTest, CancelClosesWithGoingAwayAndEndsWaitingCallers) {
  std::promise<int> closeCode;
  LoopbackWebSocketServer server([&](LoopbackWebSocketServer::Peer& peer) {
    while (peer.receive()) {
    }
    closeCode.set_value(peer.clientCloseCode());
  });
  auto connection = BeastOrvidWebSocketConnector().connect(requestFor(server.url()));
  auto waiting = std::async(std::launch::async, [&] { return thrown<OrvidWebSocketError>([&] { connection->receive(); }); });
  connection->send(std::string_view("hello"));
  EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
  connection->cancel();
  connection->cancel();
  auto error = waiting.get();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->errorCase(), Case::cancelled);
  EXPECT_EQ(closeCode.get_future().get(), 1001);
  EXPECT_EQ(thrown<OrvidWebSocketError>([&] { connection->send(std::string_view("late")); })->errorCase(),
            Case::cancelled);
}

TEST(BeastOrvidWebSocketConnectorTest, AStoppedReceiveLeavesTheConnectionUsable) {
  Event stopped;
  LoopbackWebSocketServer server([&](LoopbackWebSocketServer::Peer& peer) {
    peer.receive();  // accepts, then waits for the test's go-ahead
    if (stopped.wait()) peer.sendText("after");
    peer.receive();
  });
  auto connection = BeastOrvidWebSocketConnector().connect(requestFor(server.url()));
  connection->send(std::string_view("go"));
  std::stop_source stop;
  auto waiting = std::async(std::launch::async, [&] { return thrown<CancellationError>([&] { connection->receive(stop.get_token()); }); });
  stop.request_stop();
  EXPECT_TRUE(waiting.get().has_value());
  stopped.set();
  EXPECT_EQ(text(connection->receive()), "after");
}

TEST(BeastOrvidWebSocketConnectorTest, OpeningFailuresSayWhatWentWrong) {
  Event release;
  LoopbackWebSocketServer refusing([](LoopbackWebSocketServer::Peer& peer) { peer.reject(401); });
  LoopbackWebSocketServer silent([&](LoopbackWebSocketServer::Peer&) { release.wait(); });
  std::string closedPort;
  {
    LoopbackWebSocketServer gone([](LoopbackWebSocketServer::Peer&) {});
    closedPort = gone.url();
  }
  struct Case_ {
    std::string name;
    OrvidHTTPRequest request;
    Case expected;
  };
  const std::vector<Case_> cases = {
      {"rejected", requestFor(refusing.url()), Case::handshakeRejected},
      {"silent", requestFor(silent.url(), 200ms), Case::timedOut},
      {"nobody listening", requestFor(closedPort), Case::cannotConnectToHost},
      {"http scheme", requestFor("http://127.0.0.1:1/"), Case::badURL},
      {"unknown host", requestFor("ws://no-such-host.invalid/"), Case::cannotFindHost},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    auto error = thrown<OrvidWebSocketError>([&] { BeastOrvidWebSocketConnector().connect(testCase.request); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->errorCase(), testCase.expected) << error->what();
  }
  EXPECT_EQ(thrown<OrvidWebSocketError>([&] { BeastOrvidWebSocketConnector().connect(requestFor(refusing.url())); })
                ->statusCode(),
            401);
  release.set();

  std::stop_source stop;
  stop.request_stop();
  EXPECT_TRUE(thrown<CancellationError>(
      [&] { BeastOrvidWebSocketConnector().connect(requestFor(silent.url()), stop.get_token()); }).has_value());
}

TEST(BeastOrvidWebSocketConnectorTest, RefusesAMessageLargerThanItAccepts) {
  LoopbackWebSocketServer server([](LoopbackWebSocketServer::Peer& peer) {
    peer.sendBinary(std::string(2000, 'x'));
    peer.receive();
  });
  BeastOrvidWebSocketConnector connector({.caFile = std::nullopt, .maximumMessageSize = 1024});
  auto connection = connector.connect(requestFor(server.url()));
  EXPECT_EQ(thrown<OrvidWebSocketError>([&] { connection->receive(); })->errorCase(), Case::messageTooLarge);
}

TEST(BeastOrvidWebSocketConnectorTest, SecureSocketsTrustOnlyAKnownAuthorityForTheRightHost) {
  const auto local = testing::makeSelfSignedCertificate({"DNS:localhost", "IP:127.0.0.1"});
  const auto elsewhere = testing::makeSelfSignedCertificate({"DNS:other.example"});
  TemporaryDirectory folder;
  auto write = [&](const std::string& name, const std::string& pem) {
    std::ofstream(folder / name) << pem;
    return folder / name;
  };
  const auto localAuthority = write("local.pem", local.certificatePEM);
  const auto otherAuthority = write("other.pem", elsewhere.certificatePEM);
  auto echo = [](LoopbackWebSocketServer::Peer& peer) {
    if (auto message = peer.receive()) peer.sendText(message->payload);
  };
  LoopbackWebSocketServer server(echo, local);
  LoopbackWebSocketServer misnamed(echo, elsewhere);
  ASSERT_EQ(server.url().rfind("wss://", 0), 0u);

  auto roundTrip = [&](BeastOrvidWebSocketConnector connector, const std::string& url) {
    auto connection = connector.connect(requestFor(url));
    connection->send(std::string_view("secure"));
    return text(connection->receive());
  };
  EXPECT_EQ(roundTrip(BeastOrvidWebSocketConnector({.caFile = localAuthority}), server.url()), "secure");
  {
    testing::ScopedEnvironmentVariable trust("SSL_CERT_FILE", localAuthority.string());
    EXPECT_EQ(roundTrip(BeastOrvidWebSocketConnector(), server.url()), "secure");
  }
  const std::vector<std::pair<std::string, std::function<void()>>> refused = {
      {"unknown authority", [&] { roundTrip(BeastOrvidWebSocketConnector(), server.url()); }},
      {"wrong host", [&] { roundTrip(BeastOrvidWebSocketConnector({.caFile = otherAuthority}), misnamed.url()); }},
  };
  for (const auto& [name, attempt] : refused) {
    auto error = thrown<OrvidWebSocketError>(attempt);
    ASSERT_TRUE(error) << name;
    EXPECT_EQ(error->errorCase(), Case::secureConnectionFailed) << name << ": " << error->what();
  }
  EXPECT_THROW(BeastOrvidWebSocketConnector({.caFile = folder / "missing.pem"}), OrvidWebSocketError);
}

}  // namespace
}  // namespace orvid
