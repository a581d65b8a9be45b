#include "orvid/textprocessing/prompt_post_processor.h"

#include <gtest/gtest.h>

#include <deque>
#include <exception>
#include <stdexcept>
#include <variant>
#include <vector>

#include "orvid/ai/json_value.h"
#include "orvid/platform/cancellation.h"
#include "orvid/testing/thrown.h"
#include "orvid/textprocessing/prompt_output_parser.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;

// One scripted answer of the fake model: a result or an error, and how long the
// call takes on the client's clock.
struct ScriptedAnswer {
  std::variant<ChatCompletionResult, std::exception_ptr> outcome;
  std::chrono::nanoseconds duration = 0ns;
};

ScriptedAnswer reply(std::string content) {
  return {ChatCompletionResult{std::move(content), std::nullopt, std::nullopt, std::nullopt, std::nullopt}};
}

template <typename Error>
ScriptedAnswer failure(Error error) {
  return {std::make_exception_ptr(std::move(error))};
}

// Answers from a script, in order, recording every request; its clock moves only
// by the scripted durations. Used from one thread.
class ScriptedChatCompletionClient final : public ChatCompletionClient {
 public:
  ChatCompletionResult complete(const ChatCompletionRequest& request, const AIProviderDescriptor&,
                                const AIProviderConfiguration& configuration, std::stop_token stop) override {
    checkCancellation(stop);
    requests.push_back(request);
    configurations.push_back(configuration.id);
    if (script.empty()) throw OrvidProviderError::invalidResponse();
    ScriptedAnswer answer = std::move(script.front());
    script.pop_front();
    now += answer.duration;
    if (auto* error = std::get_if<std::exception_ptr>(&answer.outcome)) std::rethrow_exception(*error);
    return std::get<ChatCompletionResult>(answer.outcome);
  }

  std::deque<ScriptedAnswer> script;
  std::vector<ChatCompletionRequest> requests;
  std::vector<std::string> configurations;
  std::chrono::steady_clock::time_point now{1h};
};

class PromptPostProcessorTest : public ::testing::Test {
 protected:
  PromptPostProcessorTest() {
    prompt_.id = "polish";
    prompt_.promptText = "Polish the text.";
    provider_.id = "openai";
    configuration_.id = "my-openai";
    configuration_.providerID = "openai";
    configuration_.selectedModelID = "configured-model";
  }

  std::optional<PromptPostProcessResult> process(std::string_view transcript,
                                                 const std::optional<std::string>& defaultModel = std::nullopt) {
    return processor_.process(transcript, prompt_, provider_, configuration_, defaultModel);
  }

  // A fresh client and processor, for tables whose rows must not share a script.
  void restart() {
    client_ = std::make_shared<ScriptedChatCompletionClient>();
    processor_ = PromptPostProcessor(client_, [client = client_.get()] { return client->now; });
  }

  std::shared_ptr<ScriptedChatCompletionClient> client_ = std::make_shared<ScriptedChatCompletionClient>();
  PromptPostProcessor processor_{client_, [client = client_.get()] { return client->now; }};
  TranscriptionPrompt prompt_;
  AIProviderDescriptor provider_;
  AIProviderConfiguration configuration_;
};

TEST_F(PromptPostProcessorTest, SendsTheTrimmedTranscriptWithThePromptAsSystemPromptButNeverABlankOne) {
  for (std::string_view blank : {"", "   ", " \n\t \r\n"}) EXPECT_EQ(process(blank), std::nullopt);
  EXPECT_TRUE(client_->requests.empty());

  client_->script.push_back(reply("Hello there."));
  auto result = process("  hello there \n");
  ASSERT_TRUE(result);
  const ChatCompletionRequest expected{"openai",     "configured-model", "Polish the text.", "hello there",
                                       std::nullopt, std::nullopt,       std::nullopt};
  EXPECT_EQ(client_->requests, std::vector<ChatCompletionRequest>{expected});
  EXPECT_EQ(client_->configurations, std::vector<std::string>{"my-openai"});
  EXPECT_EQ(result->text, "Hello there.");
  EXPECT_EQ(result->providerID, "my-openai");
  EXPECT_EQ(result->modelID, "configured-model");
  EXPECT_EQ(result->promptID, "polish");
}

TEST_F(PromptPostProcessorTest, ChoosesThePromptModelThenTheSelectedModelThenTheDefault) {
  struct Case {
    std::optional<std::string> promptModel;
    std::optional<std::string> selectedModel;
    std::optional<std::string> defaultModel;
    std::optional<std::string> expected;  // absent: missingModel, and nothing sent
  };
  const std::vector<Case> cases = {
      {"prompt-model", "selected", "default", "prompt-model"},
      {std::nullopt, "selected", "default", "selected"},
      {std::nullopt, std::nullopt, "default", "default"},
      {std::nullopt, std::nullopt, std::nullopt, std::nullopt},
      // A present but empty choice is not replaced by the later candidates.
      {std::nullopt, "", "default", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.promptModel.value_or("<none>") + " / " + c.selectedModel.value_or("<none>"));
    restart();
    prompt_.modelID = c.promptModel;
    configuration_.selectedModelID = c.selectedModel;
    client_->script.push_back(reply("ok"));
    if (c.expected) {
      EXPECT_EQ(process("text", c.defaultModel).value().modelID, *c.expected);
      ASSERT_EQ(client_->requests.size(), 1u);
      EXPECT_EQ(client_->requests[0].modelID, *c.expected);
    } else {
      EXPECT_THROW(process("text", c.defaultModel), OrvidProviderError);
      EXPECT_TRUE(client_->requests.empty());
    }
  }
}

TEST_F(PromptPostProcessorTest, StructuredOutputIsRequestedAndReadWhenTheProviderSupportsIt) {
  provider_.supportsStructuredOutput = true;
  client_->script.push_back(reply("{\"transcription\": \"  Hel\u200Blo \\n\"}"));
  client_->script.push_back(reply("<output>Plain</output>"));
  EXPECT_EQ(process("hello")->text, "Hello");
  EXPECT_EQ(client_->requests.at(0).responseSchema, JSONSchema::transcriptionOutput());
  // A reply that is not the expected object is read as plain text.
  EXPECT_EQ(process("hello")->text, "Plain");
}

TEST_F(PromptPostProcessorTest, AlternativesAppendTheInstructionAndNeverAskForASchema) {
  provider_.supportsStructuredOutput = true;
  prompt_.rewritesAsAlternatives = true;
  const std::string answer = "```json\n[{\"text\": \"Hi\", \"start\": 0, \"end\": 5}]\n```";
  client_->script.push_back(reply(answer));
  auto result = process("hello");
  ASSERT_TRUE(result);
  EXPECT_EQ(client_->requests.at(0).responseSchema, std::nullopt);
  EXPECT_EQ(client_->requests.at(0).systemPrompt, "Polish the text." + PromptPostProcessor::alternativesInstruction());
  // The reply is handed on as text for the choice parsers.
  EXPECT_EQ(result->text, answer);
}

TEST_F(PromptPostProcessorTest, RetriesOnceWithoutTheSchemaWhenTheProviderRejectsItCountingTimeFromTheFirstTry) {
  provider_.supportsStructuredOutput = true;
  client_->script.push_back(
      {std::make_exception_ptr(OrvidProviderError::unsupportedProvider("400: JSON_SCHEMA")), 300ms});
  // The retry's reply is still read with the structured preference.
  client_->script.push_back({ChatCompletionResult{"{\"transcription\": \"Fixed\"}", std::nullopt, 70, std::nullopt,
                                                  std::nullopt},
                             400ms});
  auto result = process("text");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, "Fixed");
  EXPECT_EQ(result->elapsedMilliseconds, 700);
  EXPECT_DOUBLE_EQ(result->tokensPerSecond.value_or(0), 100.0);
  ASSERT_EQ(client_->requests.size(), 2u);
  EXPECT_EQ(client_->requests[0].responseSchema, JSONSchema::transcriptionOutput());
  ChatCompletionRequest withoutSchema = client_->requests[0];
  withoutSchema.responseSchema.reset();
  EXPECT_EQ(client_->requests[1], withoutSchema);
}

TEST_F(PromptPostProcessorTest, OtherErrorsAndFailedRetriesPropagateWithoutFurtherAttempts) {
  struct Case {
    bool structured;
    OrvidProviderError first;
    std::optional<OrvidProviderError> second;  // absent: no second call expected
  };
  const auto schemaRejection = OrvidProviderError::unsupportedProvider("response_format is not supported");
  const std::vector<Case> cases = {
      // No schema was sent: the same text is an ordinary failure.
      {false, schemaRejection, std::nullopt},
      // Not about the schema.
      {true, OrvidProviderError::unsupportedProvider("rate limit exceeded"), std::nullopt},
      // The retry fails too: its error propagates, and there is no third call.
      {true, schemaRejection, OrvidProviderError::unsupportedProvider("json_schema still unsupported")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.first.what());
    restart();
    provider_.supportsStructuredOutput = c.structured;
    client_->script.push_back(failure(c.first));
    if (c.second) client_->script.push_back(failure(*c.second));
    client_->script.push_back(reply("never read"));
    EXPECT_EQ(testing::thrown<OrvidProviderError>([&] { process("text"); }), c.second.value_or(c.first));
    EXPECT_EQ(client_->requests.size(), c.second ? 2u : 1u);
  }
  restart();
  client_->script.push_back(failure(std::runtime_error("connection refused")));
  EXPECT_THROW(process("text"), std::runtime_error);
}

TEST_F(PromptPostProcessorTest, CancellationStopsBeforeTheRequestAndPreventsTheRetry) {
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(processor_.process("text", prompt_, provider_, configuration_, std::nullopt, stop.get_token()),
               CancellationError);

  // Stops the caller's token, then rejects the schema.
  class StoppingClient final : public ChatCompletionClient {
   public:
    ChatCompletionResult complete(const ChatCompletionRequest&, const AIProviderDescriptor&,
                                  const AIProviderConfiguration&, std::stop_token) override {
      ++calls;
      stop.request_stop();
      throw OrvidProviderError::unsupportedProvider("json_schema unsupported");
    }
    int calls = 0;
    std::stop_source stop;
  };
  auto client = std::make_shared<StoppingClient>();
  provider_.supportsStructuredOutput = true;
  EXPECT_THROW(PromptPostProcessor(client).process("text", prompt_, provider_, configuration_, std::nullopt,
                                                   client->stop.get_token()),
               CancellationError);
  EXPECT_EQ(client->calls, 1);
}

TEST_F(PromptPostProcessorTest, ReportsElapsedTimeTokensAndDebugTexts) {
  struct Case {
    std::chrono::nanoseconds duration;
    std::optional<std::int64_t> outputTokens;
    long long expectedMilliseconds;
    std::optional<double> expectedRate;
  };
  const std::vector<Case> cases = {
      {1999us, 10, 1, 10'000.0},     // truncated to whole milliseconds
      {999us, 10, 0, std::nullopt},  // under 1 ms: no rate
      {2s, std::nullopt, 2000, std::nullopt},
      {2s, 0, 2000, 0.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expectedMilliseconds);
    client_->script.push_back(
        {ChatCompletionResult{"<output>Done</output>", 12, c.outputTokens, "request body", "response body"},
         c.duration});
    auto result = process("text");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->elapsedMilliseconds, c.expectedMilliseconds);
    EXPECT_DOUBLE_EQ(result->tokensPerSecond.value_or(-1), c.expectedRate.value_or(-1));
    EXPECT_EQ(result->inputTokens, 12);
    EXPECT_EQ(result->outputTokens,
              c.outputTokens ? std::optional<int>(static_cast<int>(*c.outputTokens)) : std::nullopt);
    EXPECT_EQ(result->rawRequestDebug, "request body");
    EXPECT_EQ(result->rawResponseDebug, "response body");
    EXPECT_EQ(result->text, "Done");
  }
}

TEST(PromptPostProcessorParseTest, ParsesProcessedTextLikeTheProcessor) {
  struct Case {
    std::string content;
    bool structured;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"<output>Hi</output> thanks", true, "Hi"},
      {"{\"transcription\": \" a\u200Cb \"}", true, "ab"},
      {"\uFEFF{\"transcription\": \"bom\"}", true, "bom"},
      {"{\"transcription\": \"<output>kept</output>\"}", true, "<output>kept</output>"},
      {"{\"transcription\": \"a\"}", false, "{\"transcription\": \"a\"}"},
      {"  {\"transcription\": \"spaced\", \"extra\": 1}  ", true, "spaced"},
      {"{\"transcription\": null}", true, "{\"transcription\": null}"},
      {"{\"text\": \"x\"}", true, "{\"text\": \"x\"}"},
      {"{broken", true, "{broken"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PromptPostProcessor::parseProcessedText(c.content, c.structured), c.expected) << c.content;
  }
}

TEST(PromptPostProcessorParseTest, RecognisesSchemaRejectionsOnlyInUnsupportedProviderErrors) {
  for (const char* rejection : {"Invalid RESPONSE_FORMAT", "guided_grammar failed", "could not compile_grammar",
                                "unsupported parameter: 'response_format'", "model does not support Structured Output",
                                "structured_output disabled", "Unsupported Tokenizer for this model"}) {
    EXPECT_TRUE(
        PromptPostProcessor::isStructuredOutputIncompatibility(OrvidProviderError::unsupportedProvider(rejection)))
        << rejection;
  }
  for (const char* other : {"responseformat", "structured-output", "rate limit exceeded"}) {
    EXPECT_FALSE(PromptPostProcessor::isStructuredOutputIncompatibility(OrvidProviderError::unsupportedProvider(other)))
        << other;
  }
  EXPECT_FALSE(PromptPostProcessor::isStructuredOutputIncompatibility(OrvidProviderError::invalidResponse()));
}

}  // namespace
}  // namespace orvid
