#include "orvid/textprocessing/prompt_post_processor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <variant>
#include <vector>

#include "orvid/ai/json_value.h"
#include "orvid/platform/cancellation.h"
#include "orvid/textprocessing/prompt_output_parser.h"

namespace orvid {
namespace {

using namespace std::chrono_literals;

// A clock that moves only when told to.
class ManualClock {
 public:
  std::chrono::steady_clock::time_point now() const {
    std::lock_guard lock(mutex_);
    return now_;
  }
  void advance(std::chrono::nanoseconds by) {
    std::lock_guard lock(mutex_);
    now_ += by;
  }

 private:
  mutable std::mutex mutex_;
  std::chrono::steady_clock::time_point now_{std::chrono::hours(1)};
};

// One scripted answer of the fake model: a result or an error, and how long the
// call takes on the manual clock.
struct ScriptedAnswer {
  std::variant<ChatCompletionResult, std::exception_ptr> outcome;
  std::chrono::nanoseconds duration = 0ns;
};

ScriptedAnswer reply(std::string content, std::chrono::nanoseconds duration = 0ns) {
  return {ChatCompletionResult{std::move(content), std::nullopt, std::nullopt, std::nullopt, std::nullopt}, duration};
}

template <typename Error>
ScriptedAnswer failure(Error error) {
  return {std::make_exception_ptr(std::move(error)), 0ns};
}

// Answers from a script, in order, recording every request it receives.
class ScriptedChatCompletionClient final : public ChatCompletionClient {
 public:
  explicit ScriptedChatCompletionClient(ManualClock& clock) : clock_(clock) {}

  void script(ScriptedAnswer answer) {
    std::lock_guard lock(mutex_);
    answers_.push_back(std::move(answer));
  }

  std::vector<ChatCompletionRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }

  ChatCompletionResult complete(const ChatCompletionRequest& request, const AIProviderDescriptor& provider,
                                const AIProviderConfiguration& configuration, std::stop_token stop) override {
    checkCancellation(stop);
    ScriptedAnswer answer;
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(request);
      providers_.push_back(provider.id);
      configurations_.push_back(configuration.id);
      if (answers_.empty()) throw OrvidProviderError::invalidResponse();
      answer = std::move(answers_.front());
      answers_.pop_front();
    }
    clock_.advance(answer.duration);
    if (auto* error = std::get_if<std::exception_ptr>(&answer.outcome)) std::rethrow_exception(*error);
    return std::get<ChatCompletionResult>(answer.outcome);
  }

  std::vector<std::string> providers_;
  std::vector<std::string> configurations_;

 private:
  ManualClock& clock_;
  mutable std::mutex mutex_;
  std::deque<ScriptedAnswer> answers_;
  std::vector<ChatCompletionRequest> requests_;
};

class PromptPostProcessorTest : public ::testing::Test {
 protected:
  PromptPostProcessorTest()
      : client_(std::make_shared<ScriptedChatCompletionClient>(clock_)),
        processor_(client_, [this] { return clock_.now(); }) {
    prompt_.id = "polish";
    prompt_.name = "Polish";
    prompt_.promptText = "Polish the text.";
    provider_.id = "openai";
    provider_.supportsStructuredOutput = false;
    configuration_.id = "my-openai";
    configuration_.providerID = "openai";
    configuration_.selectedModelID = "configured-model";
  }

  std::optional<PromptPostProcessResult> process(std::string_view transcript,
                                                 const std::optional<std::string>& defaultModel = std::nullopt) {
    return processor_.process(transcript, prompt_, provider_, configuration_, defaultModel);
  }

  ManualClock clock_;
  std::shared_ptr<ScriptedChatCompletionClient> client_;
  PromptPostProcessor processor_;
  TranscriptionPrompt prompt_;
  AIProviderDescriptor provider_;
  AIProviderConfiguration configuration_;
};

TEST_F(PromptPostProcessorTest, BlankTranscriptSendsNothing) {
  for (std::string_view blank : {"", "   ", " \n\t \r\n"}) {
    EXPECT_EQ(process(blank), std::nullopt);
  }
  EXPECT_TRUE(client_->requests().empty());
}

TEST_F(PromptPostProcessorTest, SendsTheTrimmedTranscriptWithThePromptAsSystemPrompt) {
  client_->script(reply("Hello there."));
  auto result = process("  hello there \n");
  ASSERT_TRUE(result);
  ASSERT_EQ(client_->requests().size(), 1u);
  const ChatCompletionRequest sent = client_->requests()[0];
  EXPECT_EQ(sent.providerID, "openai");
  EXPECT_EQ(sent.modelID, "configured-model");
  EXPECT_EQ(sent.systemPrompt, "Polish the text.");
  EXPECT_EQ(sent.userText, "hello there");
  EXPECT_EQ(sent.responseSchema, std::nullopt);
  EXPECT_EQ(sent.reasoningEffort, std::nullopt);
  EXPECT_EQ(sent.excludeReasoningFromResponse, std::nullopt);
  EXPECT_EQ(client_->providers_, std::vector<std::string>{"openai"});
  EXPECT_EQ(client_->configurations_, std::vector<std::string>{"my-openai"});
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
    std::optional<std::string> expected;  // absent: missingModel
  };
  const std::vector<Case> cases = {
      {"prompt-model", "selected", "default", "prompt-model"},
      {std::nullopt, "selected", "default", "selected"},
      {std::nullopt, std::nullopt, "default", "default"},
      {std::nullopt, std::nullopt, std::nullopt, std::nullopt},
      // A present but empty choice is not replaced by the later candidates.
      {"", "selected", "default", std::nullopt},
      {std::nullopt, "", "default", std::nullopt},
      {std::nullopt, std::nullopt, "", std::nullopt},
  };
  for (const Case& c : cases) {
    prompt_.modelID = c.promptModel;
    configuration_.selectedModelID = c.selectedModel;
    const size_t sentBefore = client_->requests().size();
    if (c.expected) {
      client_->script(reply("ok"));
      auto result = process("text", c.defaultModel);
      ASSERT_TRUE(result);
      EXPECT_EQ(result->modelID, *c.expected);
      ASSERT_EQ(client_->requests().size(), sentBefore + 1);
      EXPECT_EQ(client_->requests().back().modelID, *c.expected);
    } else {
      try {
        process("text", c.defaultModel);
        ADD_FAILURE() << "no error for prompt model " << c.promptModel.value_or("<none>");
      } catch (const OrvidProviderError& error) {
        EXPECT_EQ(error, OrvidProviderError::missingModel());
        EXPECT_STREQ(error.what(), "Missing model.");
      }
      EXPECT_EQ(client_->requests().size(), sentBefore) << "nothing may be sent without a model";
    }
  }
}

TEST_F(PromptPostProcessorTest, StructuredOutputIsRequestedAndReadWhenTheProviderSupportsIt) {
  provider_.supportsStructuredOutput = true;
  client_->script(reply("{\"transcription\": \"  Hel\u200Blo \\n\"}"));
  auto result = process("hello");
  ASSERT_TRUE(result);
  EXPECT_EQ(client_->requests().at(0).responseSchema, JSONSchema::transcriptionOutput());
  EXPECT_EQ(result->text, "Hello");

  // A reply that is not the expected object is read as plain text.
  const std::vector<std::pair<std::string, std::string>> replies = {
      {"<output>Plain</output>", "Plain"},
      {"{\"text\": \"x\"}", "{\"text\": \"x\"}"},
      {"{\"transcription\": 5}", "{\"transcription\": 5}"},
      {"[\"transcription\"]", "[\"transcription\"]"},
      {"\uFEFF{\"transcription\": \"bom\"}", "bom"},
      {"{\"transcription\": \"<output>kept</output>\"}", "<output>kept</output>"},
  };
  for (const auto& [answer, expected] : replies) {
    client_->script(reply(answer));
    auto parsed = process("hello");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->text, expected) << answer;
  }
}

TEST_F(PromptPostProcessorTest, WithoutStructuredOutputAJSONReplyIsPlainText) {
  client_->script(reply("{\"transcription\": \"Hello\"}"));
  auto result = process("hello");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, "{\"transcription\": \"Hello\"}");
}

TEST_F(PromptPostProcessorTest, AlternativesAppendTheInstructionAndNeverAskForASchema) {
  provider_.supportsStructuredOutput = true;
  prompt_.rewritesAsAlternatives = true;
  client_->script(reply("```json\n[{\"text\": \"Hi\", \"start\": 0, \"end\": 5}]\n```"));
  auto result = process("hello");
  ASSERT_TRUE(result);
  const ChatCompletionRequest sent = client_->requests().at(0);
  EXPECT_EQ(sent.responseSchema, std::nullopt);
  EXPECT_EQ(sent.systemPrompt, "Polish the text." + PromptPostProcessor::alternativesInstruction());
  // The reply is handed on as text for the choice parsers.
  EXPECT_EQ(result->text, "```json\n[{\"text\": \"Hi\", \"start\": 0, \"end\": 5}]\n```");
  auto choices = PromptOutputParser::parseMultipleChoicesStructured(result->text, "hello");
  ASSERT_TRUE(choices);
  EXPECT_EQ(*choices, (std::vector<RewriteChoice>{{"Hi", 0, 5}}));
}

TEST(PromptPostProcessorInstructionTest, AlternativesInstructionIsFiveLinesAfterALineBreak) {
  const std::string& instruction = PromptPostProcessor::alternativesInstruction();
  ASSERT_TRUE(instruction.starts_with("\nCRITICAL INSTRUCTION: You must return the output as a JSON-formatted array "
                                      "of objects."));
  EXPECT_FALSE(instruction.ends_with("\n"));
  EXPECT_EQ(std::count(instruction.begin(), instruction.end(), '\n'), 5);
  EXPECT_NE(instruction.find("\n  - \"text\": the rewritten text for this alternative (a string)\n"),
            std::string::npos);
  EXPECT_NE(instruction.find("\n  - \"start\": the character offset in the input where the rewritten region "
                             "begins (an integer)\n"),
            std::string::npos);
  EXPECT_NE(instruction.find("\n  - \"end\": the character offset in the input where the rewritten region ends, "
                             "exclusive (an integer)\nEvery object"),
            std::string::npos);
  EXPECT_NE(instruction.find("region \xE2\x80\x94 the array"), std::string::npos);
  EXPECT_TRUE(instruction.ends_with("Return ONLY the JSON array \xE2\x80\x94 no markdown fences (like ```json), no "
                                    "explanations, no other text."));
}

TEST_F(PromptPostProcessorTest, RetriesOnceWithoutTheSchemaWhenTheProviderRejectsIt) {
  provider_.supportsStructuredOutput = true;
  const std::vector<std::string> rejections = {
      "400: Unknown field JSON_SCHEMA",
      "guided_grammar failed",
      "could not compile_grammar",
      "unsupported parameter: 'response_format'",
      "model does not support Structured Output",
      "structured_output disabled",
      "Unsupported Tokenizer for this model",
  };
  for (const std::string& rejection : rejections) {
    ManualClock clock;
    auto client = std::make_shared<ScriptedChatCompletionClient>(clock);
    PromptPostProcessor processor(client, [&clock] { return clock.now(); });
    client->script(failure(OrvidProviderError::unsupportedProvider(rejection)));
    // The retry's reply is still read with the structured preference.
    client->script(reply("{\"transcription\": \"Fixed\"}"));
    auto result = processor.process("text", prompt_, provider_, configuration_, std::nullopt);
    ASSERT_TRUE(result) << rejection;
    EXPECT_EQ(result->text, "Fixed") << rejection;
    auto sent = client->requests();
    ASSERT_EQ(sent.size(), 2u) << rejection;
    EXPECT_EQ(sent[0].responseSchema, JSONSchema::transcriptionOutput());
    ChatCompletionRequest withoutSchema = sent[0];
    withoutSchema.responseSchema.reset();
    EXPECT_EQ(sent[1], withoutSchema) << rejection;
  }
}

TEST_F(PromptPostProcessorTest, OtherErrorsAndFailedRetriesPropagateWithoutFurtherAttempts) {
  struct Case {
    bool structured;
    OrvidProviderError first;
    std::optional<OrvidProviderError> second;  // absent: no second call expected
    OrvidProviderError expected;
  };
  const auto schemaRejection = OrvidProviderError::unsupportedProvider("response_format is not supported");
  const std::vector<Case> cases = {
      // No schema was sent: the same text is an ordinary failure.
      {false, schemaRejection, std::nullopt, schemaRejection},
      // Not about the schema.
      {true, OrvidProviderError::unsupportedProvider("rate limit exceeded"), std::nullopt,
       OrvidProviderError::unsupportedProvider("rate limit exceeded")},
      {true, OrvidProviderError::missingCredential(), std::nullopt, OrvidProviderError::missingCredential()},
      // The retry fails too: its error propagates, and there is no third call.
      {true, schemaRejection, OrvidProviderError::unsupportedProvider("json_schema still unsupported"),
       OrvidProviderError::unsupportedProvider("json_schema still unsupported")},
  };
  for (const Case& c : cases) {
    ManualClock clock;
    auto client = std::make_shared<ScriptedChatCompletionClient>(clock);
    PromptPostProcessor processor(client, [&clock] { return clock.now(); });
    provider_.supportsStructuredOutput = c.structured;
    client->script(failure(c.first));
    if (c.second) client->script(failure(*c.second));
    client->script(reply("never read"));
    try {
      processor.process("text", prompt_, provider_, configuration_, std::nullopt);
      ADD_FAILURE() << "no error after " << c.first.what();
    } catch (const OrvidProviderError& error) {
      EXPECT_EQ(error, c.expected) << error.what();
    }
    EXPECT_EQ(client->requests().size(), c.second ? 2u : 1u) << c.first.what();
  }
}

TEST_F(PromptPostProcessorTest, TransportErrorsPropagateUnchanged) {
  provider_.supportsStructuredOutput = true;
  client_->script(failure(std::runtime_error("connection refused")));
  EXPECT_THROW(process("text"), std::runtime_error);
  EXPECT_EQ(client_->requests().size(), 1u);
}

TEST_F(PromptPostProcessorTest, CancellationStopsBeforeTheRequest) {
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(processor_.process("text", prompt_, provider_, configuration_, std::nullopt, stop.get_token()),
               CancellationError);
}

TEST_F(PromptPostProcessorTest, CancellationDuringTheFirstAttemptPreventsTheRetry) {
  // Stops the caller's token, then rejects the schema.
  class StoppingClient final : public ChatCompletionClient {
   public:
    explicit StoppingClient(std::stop_source& stop) : stop_(stop) {}
    ChatCompletionResult complete(const ChatCompletionRequest&, const AIProviderDescriptor&,
                                  const AIProviderConfiguration&, std::stop_token) override {
      ++calls;
      stop_.request_stop();
      throw OrvidProviderError::unsupportedProvider("json_schema unsupported");
    }
    int calls = 0;

   private:
    std::stop_source& stop_;
  };
  std::stop_source stop;
  auto client = std::make_shared<StoppingClient>(stop);
  PromptPostProcessor processor(client);
  provider_.supportsStructuredOutput = true;
  EXPECT_THROW(processor.process("text", prompt_, provider_, configuration_, std::nullopt, stop.get_token()),
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
      {250ms, 50, 250, 200.0},
      {1999us, 10, 1, 10'000.0},  // truncated to whole milliseconds
      {999us, 10, 0, std::nullopt},  // under 1 ms: no rate
      {0ns, 10, 0, std::nullopt},
      {2s, std::nullopt, 2000, std::nullopt},
      {2s, 0, 2000, 0.0},
  };
  for (const Case& c : cases) {
    client_->script({ChatCompletionResult{"<output>Done</output>", 12, c.outputTokens, "request body", "response body"},
                     c.duration});
    auto result = process("text");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->elapsedMilliseconds, c.expectedMilliseconds);
    if (c.expectedRate) {
      ASSERT_TRUE(result->tokensPerSecond) << c.expectedMilliseconds << " ms";
      EXPECT_DOUBLE_EQ(*result->tokensPerSecond, *c.expectedRate);
    } else {
      EXPECT_EQ(result->tokensPerSecond, std::nullopt) << c.expectedMilliseconds << " ms";
    }
    EXPECT_EQ(result->inputTokens, 12);
    EXPECT_EQ(result->outputTokens, c.outputTokens ? std::optional<int>(static_cast<int>(*c.outputTokens))
                                                   : std::nullopt);
    EXPECT_EQ(result->rawRequestDebug, "request body");
    EXPECT_EQ(result->rawResponseDebug, "response body");
    EXPECT_EQ(result->text, "Done");
  }
}

TEST_F(PromptPostProcessorTest, RetryTimeCountsFromTheFirstAttempt) {
  provider_.supportsStructuredOutput = true;
  client_->script({std::make_exception_ptr(OrvidProviderError::unsupportedProvider("json_schema")), 300ms});
  client_->script({ChatCompletionResult{"Fine", std::nullopt, 70, std::nullopt, std::nullopt}, 400ms});
  auto result = process("text");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->elapsedMilliseconds, 700);
  ASSERT_TRUE(result->tokensPerSecond);
  EXPECT_DOUBLE_EQ(*result->tokensPerSecond, 100.0);
  EXPECT_EQ(result->rawRequestDebug, std::nullopt);
}

TEST_F(PromptPostProcessorTest, SeveralCallsMayRunAtOnceOnOneProcessor) {
  // The client echoes each transcript, so every result must carry its own.
  class EchoClient final : public ChatCompletionClient {
   public:
    ChatCompletionResult complete(const ChatCompletionRequest& request, const AIProviderDescriptor&,
                                  const AIProviderConfiguration&, std::stop_token) override {
      return {"<output>" + request.userText + "</output>", std::nullopt, std::nullopt, std::nullopt, std::nullopt};
    }
  };
  PromptPostProcessor processor(std::make_shared<EchoClient>());
  std::vector<std::string> results(8);
  {
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < results.size(); ++i) {
      threads.emplace_back([&, i] {
        for (int round = 0; round < 25; ++round) {
          auto result =
              processor.process(" text " + std::to_string(i) + " ", prompt_, provider_, configuration_, std::nullopt);
          results[i] = result ? result->text : "<none>";
        }
      });
    }
  }
  for (size_t i = 0; i < results.size(); ++i) EXPECT_EQ(results[i], "text " + std::to_string(i));
}

TEST(PromptPostProcessorParseTest, ParsesProcessedTextLikeTheProcessor) {
  struct Case {
    std::string content;
    bool structured;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"<output>Hi</output> thanks", false, "Hi"},
      {"<output>Hi</output> thanks", true, "Hi"},
      {"<output>no end", false, "<output>no end"},
      {"wo\u200Brd\u200D", false, "word"},
      {"{\"transcription\": \" a\u200Cb \"}", true, "ab"},
      {"{\"transcription\": \"a\"}", false, "{\"transcription\": \"a\"}"},
      {"  {\"transcription\": \"spaced\", \"extra\": 1}  ", true, "spaced"},
      {"{\"transcription\": null}", true, "{\"transcription\": null}"},
      {"{broken", true, "{broken"},
      {"", true, ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PromptPostProcessor::parseProcessedText(c.content, c.structured), c.expected) << c.content;
  }
}

TEST(PromptPostProcessorParseTest, RecognisesSchemaRejectionsOnlyInUnsupportedProviderErrors) {
  EXPECT_TRUE(PromptPostProcessor::isStructuredOutputIncompatibility(
      OrvidProviderError::unsupportedProvider("Invalid RESPONSE_FORMAT")));
  EXPECT_FALSE(PromptPostProcessor::isStructuredOutputIncompatibility(
      OrvidProviderError::unsupportedProvider("responseformat")));
  EXPECT_FALSE(PromptPostProcessor::isStructuredOutputIncompatibility(
      OrvidProviderError::unsupportedProvider("structured-output")));
  EXPECT_FALSE(PromptPostProcessor::isStructuredOutputIncompatibility(OrvidProviderError::invalidResponse()));
  EXPECT_FALSE(PromptPostProcessor::isStructuredOutputIncompatibility(OrvidProviderError::missingModel()));
}

}  // namespace
}  // namespace orvid
