#pragma once

#include "orvid/ai/chat_completion_result.h"
#include "orvid/platform/bytes.h"

// Reads a chat answer in any of the shapes providers use.
namespace orvid::ChatCompletionResponseParser {

// The reply text and token counts of a chat answer (debug texts absent):
// - content: the first choice's "message"."content" (OpenAI-compatible; a first
//   choice whose "message" object has no string "content" is invalidResponse),
//   else the concatenated "text" strings of a top-level "content" array of objects
//   (Anthropic messages), else a top-level "content" string;
// - tokens from a "usage" object: "prompt_tokens" or else "input_tokens", and
//   "completion_tokens" or else "output_tokens", each when it is an integer.
// Throws OrvidProviderError::invalidResponse, whose text never quotes the body, for a
// body that is not JSON, JSON that is not an object, or an object without content.
ChatCompletionResult parse(const Bytes& data);

}  // namespace orvid::ChatCompletionResponseParser
