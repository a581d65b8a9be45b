#include "orvid/textprocessing/prompt_post_processor.h"

#include <gtest/gtest.h>

#include <deque>
#include <variant>
#include <vector>

#include "orvid/ai/json_value.h"
#include "orvid/platform/cancellation.h"
#include "orvid/testing/thrown.h"
#include "orvid/textprocessing/prompt_output_parser.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;

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

// Answers from a script in order; its clock moves only by the scripted durations.
class ScriptedChatCompletionClient final : public ChatCompletionClient {
 public:
  ChatCompletionResult complete(const ChatCompletionRequest& request, const AIProviderDescriptor&,
                                const AIProviderConfiguration&, std::stop_token stop) override {
    checkCancellation(stop);
    requests.push_back(request);
    if (script.empty()) throw OrvidProviderError::invalidResponse();
    ScriptedAnswer answer = std::move(script.front());
    script.pop_front();
    now += answer.duration;
    if (auto* error = std::get_if<std::exception_ptr>(&answer.outcome)) std::rethrow_exception(*error);
    return std::get<ChatCompletionResult>(answer.outcome);
  }

  std::deque<ScriptedAnswer> script;
  std::vector<ChatCompletionRequest> requests;
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
    restart();
  }

  std::optional<PromptPostProcessResult> process(std::string_view transcript,
                                                 const std::optional<std::string>& defaultModel = std::nullopt) {
    return processor_.process(transcript, prompt_, provider_, configuration_, defaultModel);
  }

  void restart() {
    client_ = std::make_shared<ScriptedChatCompletionClient>();
    processor_ = PromptPostProcessor(client_, [client = client_.get()] { return client->now; });
  }

  std::shared_ptr<ScriptedChatCompletionClient> client_;
  PromptPostProcessor processor_{nullptr};
  TranscriptionPrompt prompt_;
  AIProviderDescriptor provider_;
  AIProviderConfiguration configuration_;
};

TEST_F(PromptPostProcessorTest, SendsTheTrimmedTranscriptWithThePromptAsSystemPromptButNeverABlankOne) {
  EXPECT_EQ(process(" \n\t \r\n"), std::nullopt);
  client_->script.push_back(reply("Hello there."));
  EXPECT_EQ(process("  hello there \n").value().text, "Hello there.");
  const ChatCompletionRequest expected{"openai",     "configured-model", "Polish the text.", "hello there",
                                       std::nullopt, std::nullopt,       std::nullopt};
  EXPECT_EQ(client_->requests, std::vector<ChatCompletionRequest>{expected});
}

TEST_F(PromptPostProcessorTest, ChoosesThePromptModelThenTheSelectedModelThenTheDefault) {
  struct Case {
    std::optional<std::string> promptModel;
    std::optional<std::string> selectedModel;
    std::optional<std::string> defaultModel;
    std::optional<std::string> expected;  // absent: missingModel
  };
  const std::vector<Case> cases = {
      {"prompt-model", "selected", "default", "prompt-model"},
      {std::nullopt, "selected", "default", "selected"},
      {std::nullopt, std::nullopt, "default", "default"},
      // A present but empty choice is not replaced by the later candidates.
      {std::nullopt, "", "default", std::nullopt},
  };
  for (const Case& c : cases) {
    restart();
    prompt_.modelID = c.promptModel;
    configuration_.selectedModelID = c.selectedModel;
    client_->script.push_back(reply("ok"));
    EXPECT_EQ(testing::thrown<OrvidProviderError>([&] { EXPECT_EQ(process("text", c.defaultModel)->modelID, c.expected); }),
              c.expected ? std::nullopt : std::optional(OrvidProviderError::missingModel()));
  }
}

TEST_F(PromptPostProcessorTest, StructuredOutputIsRequestedAndReadWhenTheProviderSupportsIt) {
  provider_.supportsStructuredOutput = true;
  client_->script.push_back(reply("{\"transcription\": \"  Hel\u200Blo \\n\"}"));
  EXPECT_EQ(process("hello")->text, "Hello");
  EXPECT_EQ(client_->requests.at(0).responseSchema, JSONSchema::transcriptionOutput());
}

TEST_F(PromptPostProcessorTest, AlternativesAppendTheInstructionAndNeverAskForASchema) {
  provider_.supportsStructuredOutput = true;
  prompt_.rewritesAsAlternatives = true;
  const std::string answer = "```json\n[{\"text\": \"Hi\", \"start\": 0, \"end\": 5}]\n```";
  client_->script.push_back(reply(answer));
  EXPECT_EQ(process("hello").value().text, answer);
  EXPECT_EQ(client_->requests.at(0).responseSchema, std::nullopt);
  EXPECT_EQ(client_->requests.at(0).systemPrompt, "Polish the text." + PromptPostProcessor::alternativesInstruction());
}

TEST_F(PromptPostProcessorTest, RetriesOnceWithoutTheSchemaWhenTheProviderRejectsIt) {
  for (const char* marker : {"Invalid RESPONSE_FORMAT", "guided_grammar failed", "could not compile_grammar",
                             "model does not support Structured Output", "structured_output disabled",
                             "Unsupported Tokenizer for this model"}) {
    SCOPED_TRACE(marker);
    restart();
    provider_.supportsStructuredOutput = true;
    client_->script = {
        {std::make_exception_ptr(OrvidProviderError::unsupportedProvider(marker)), 300ms},
        {ChatCompletionResult{"{\"transcription\": \"Fixed\"}", std::nullopt, 70, std::nullopt, std::nullopt}, 400ms}};
    // Time counts from the first try; the retry's reply is still read as structured.
    auto result = process("text").value();
    EXPECT_EQ(std::pair(result.text, result.elapsedMilliseconds), std::pair(std::string("Fixed"), 700LL));
    ASSERT_EQ(client_->requests.size(), 2u);
    ChatCompletionRequest withoutSchema = client_->requests[0];
    withoutSchema.responseSchema.reset();
    EXPECT_EQ(client_->requests[1], withoutSchema);
  }
}

TEST_F(PromptPostProcessorTest, OtherErrorsAndFailedRetriesPropagateWithoutFurtherAttempts) {
  const auto rejection = OrvidProviderError::unsupportedProvider("response_format is not supported");
  const auto other = OrvidProviderError::unsupportedProvider("responseformat: rate limit exceeded");
  const auto second = OrvidProviderError::unsupportedProvider("json_schema still unsupported");
  const auto attempt = [&](bool structured, std::deque<ScriptedAnswer> script) {
    restart();
    provider_.supportsStructuredOutput = structured;
    client_->script = std::move(script);
    client_->script.push_back(reply("never read"));
    auto error = testing::thrown<OrvidProviderError>([&] { process("text"); });
    return std::pair(error.value_or(OrvidProviderError::invalidResponse()), client_->requests.size());
  };
  EXPECT_EQ(attempt(false, {failure(rejection)}), std::pair(rejection, size_t{1}));
  EXPECT_EQ(attempt(true, {failure(other)}), std::pair(other, size_t{1}));
  EXPECT_EQ(attempt(true, {failure(rejection), failure(second)}), std::pair(second, size_t{2}));
}

TEST_F(PromptPostProcessorTest, CancellationStopsBeforeTheRequestAndPreventsTheRetry) {
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(processor_.process("text", prompt_, provider_, configuration_, std::nullopt, stop.get_token()),
               CancellationError);

  struct StoppingClient final : ChatCompletionClient {
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
  // Truncated to whole milliseconds; under 1 ms or without a token count there is no rate.
  for (const Case& c : {Case{1999us, 10, 1, 10'000.0}, Case{999us, 10, 0, std::nullopt},
                        Case{2s, std::nullopt, 2000, std::nullopt}}) {
    client_->script.push_back(
        {ChatCompletionResult{"<output>Done</output>", 12, c.outputTokens, "request body", "response body"},
         c.duration});
    auto result = process("text").value();
    EXPECT_EQ(result.elapsedMilliseconds, c.expectedMilliseconds);
    EXPECT_DOUBLE_EQ(result.tokensPerSecond.value_or(-1), c.expectedRate.value_or(-1));
    EXPECT_EQ(std::pair(result.inputTokens, result.rawResponseDebug), std::pair(std::optional(12), std::optional<std::string>("response body")));
  }
}

TEST(PromptPostProcessorParseTest, ReadsTheTranscriptionObjectOnlyWhenStructured) {
  EXPECT_EQ(PromptPostProcessor::parseProcessedText("<output>Hi</output> thanks", true), "Hi");
  EXPECT_EQ(PromptPostProcessor::parseProcessedText("\uFEFF{\"transcription\": \"<output>kept</output>\"}", true),
            "<output>kept</output>");
  EXPECT_EQ(PromptPostProcessor::parseProcessedText("{\"transcription\": \"a\"}", false), "{\"transcription\": \"a\"}");
  EXPECT_EQ(PromptPostProcessor::parseProcessedText("{\"transcription\": null}", true), "{\"transcription\": null}");
}

}  // namespace
}  // namespace orvid
