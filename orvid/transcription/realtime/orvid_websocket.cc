#include "orvid/transcription/realtime/orvid_websocket.h"

#include <utility>

namespace orvid {
namespace {

std::string sentence(OrvidWebSocketError::Case errorCase) {
  using Case = OrvidWebSocketError::Case;
  switch (errorCase) {
    case Case::badURL:
      return "The WebSocket URL cannot be used.";
    case Case::cannotFindHost:
      return "The WebSocket server's host name could not be found.";
    case Case::cannotConnectToHost:
      return "Could not connect to the WebSocket server.";
    case Case::timedOut:
      return "The WebSocket connection timed out.";
    case Case::secureConnectionFailed:
      return "A secure WebSocket connection could not be made.";
    case Case::handshakeRejected:
      return "The server refused the WebSocket connection";
    case Case::closedByPeer:
      return "The server closed the WebSocket";
    case Case::connectionLost:
      return "The WebSocket connection was lost.";
    case Case::messageTooLarge:
      return "The server sent a WebSocket message that is too large.";
    case Case::cancelled:
      return "The WebSocket connection was cancelled.";
    case Case::transportFailed:
      return "The WebSocket transport failed.";
  }
  return "The WebSocket transport failed.";
}

}  // namespace

OrvidWebSocketError::OrvidWebSocketError(Case errorCase, std::string detail, int statusCode, int closeCode)
    : case_(errorCase), detail_(std::move(detail)), statusCode_(statusCode), closeCode_(closeCode),
      message_(sentence(errorCase)) {
  if (errorCase == Case::handshakeRejected) message_ += " with HTTP " + std::to_string(statusCode) + ".";
  if (errorCase == Case::closedByPeer) message_ += " with code " + std::to_string(closeCode) + ".";
  if (!detail_.empty()) message_ += " (" + detail_ + ")";
}

OrvidWebSocketError OrvidWebSocketError::make(Case errorCase, std::string detail) {
  return {errorCase, std::move(detail), 0, 0};
}

OrvidWebSocketError OrvidWebSocketError::handshakeRejected(int statusCode) {
  return {Case::handshakeRejected, {}, statusCode, 0};
}

OrvidWebSocketError OrvidWebSocketError::closedByPeer(int closeCode) { return {Case::closedByPeer, {}, 0, closeCode}; }

}  // namespace orvid
