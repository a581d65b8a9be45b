#include "orvid/pipeline/orvid_automation_pipeline.h"

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"

namespace orvid {

inline void PrintTo(const OrvidExecutionState& state, std::ostream* stream) { *stream << nlohmann::json(state).dump(); }

namespace {

using Clock = std::chrono::steady_clock;

// A transcription provider that answers with a fixed result or error.
class FakeTranscriptionProvider : public TranscriptionProvider {
 public:
  std::string id() const override { return "fake"; }
  TranscriptionResult transcribe(const TranscriptionRequest& request, std::stop_token) override {
    requests.push_back(request);
    if (error) std::rethrow_exception(error);
    return result;
  }
  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest&, std::stop_token) override {
    throw OrvidError::unsupportedStreaming();
  }

  TranscriptionResult result{"  open   notes and write hello ", 0.8, "en", std::nullopt, std::nullopt};
  std::exception_ptr error;
  std::vector<TranscriptionRequest> requests;
};

// A rewriter that answers with a fixed result and advances a manual clock while it "thinks".
class FakePromptProcessor : public PromptPostProcessing {
 public:
  std::optional<PromptPostProcessResult> process(const std::string& cleanedTranscript,
                                                 const TranscriptionPrompt& prompt,
                                                 const AIProviderDescriptor& provider,
                                                 const AIProviderConfiguration& configuration,
                                                 const std::optional<std::string>& defaultModelID,
                                                 std::stop_token) override {
    calls.push_back(cleanedTranscript + "|" + prompt.id + "|" + provider.id + "|" + configuration.id + "|" +
                    defaultModelID.value_or("-"));
    *clock += thinkingTime;
    if (error) std::rethrow_exception(error);
    if (!rewrittenText) return std::nullopt;
    PromptPostProcessResult result;
    result.text = *rewrittenText;
    return result;
  }

  std::shared_ptr<Clock::time_point> clock = std::make_shared<Clock::time_point>();
  Clock::duration thinkingTime{};
  std::optional<std::string> rewrittenText;
  std::exception_ptr error;
  std::vector<std::string> calls;  // transcript|prompt|provider|configuration|default model
};

// A driver with a fixed readiness that records what it is asked to do.
class FakeCUADriverClient : public CUADriverClient {
 public:
  CUADriverStatus status(std::stop_token) override {
    ++statusCalls;
    CUADriverStatus status;
    status.readiness = readiness;
    return status;
  }
  CUAExecutionResult run(const CUAExecutionRequest& request, std::stop_token) override {
    runs.push_back(request);
    if (error) std::rethrow_exception(error);
    return {request.executionID, exitCode, "done", ""};
  }
  void cancel(const UUID& executionID) override { cancelled.push_back(executionID); }

  CUADriverReadiness readiness = CUADriverReadiness::ready;
  std::int32_t exitCode = 0;
  std::exception_ptr error;
  int statusCalls = 0;
  std::vector<CUAExecutionRequest> runs;
  std::vector<UUID> cancelled;
};

std::vector<PCMFrame> someAudio() { return {PCMFrame{Bytes(320, 0), 16000, 1, 160}}; }

AIAutomationConfiguration automationConfiguration() {
  AIAutomationConfiguration configuration;
  configuration.computerUseEnabled = true;
  configuration.automationModel = AIModelReference{"gpt-4o", "GPT-4o", "openai-main", true, std::nullopt};
  configuration.minimumTranscriptionConfidence = 0.6;
  return configuration;
}

class OrvidAutomationPipelineTest : public ::testing::Test {
 protected:
  OrvidAutomationPipelineTest() : settings_(folder_ / "settings.json") {
    prompt_.id = "automation";
    provider_.id = "openai";
    providerConfiguration_.id = "openai-main";
  }

  std::unique_ptr<OrvidAutomationPipeline> makePipeline(bool withRewriter) {
    OrvidAutomationPipeline::Environment environment;
    environment.settings = &settings_;
    environment.now = [clock = rewriter_->clock] { return *clock; };
    return std::make_unique<OrvidAutomationPipeline>(coordinator_, transcriber_, TranscriptCleanupEngine(settings_),
                                                     withRewriter ? rewriter_ : nullptr, driver_, environment);
  }

  OrvidAutomationProposal prepare(OrvidAutomationPipeline& pipeline,
                                  const AIAutomationConfiguration& configuration = automationConfiguration()) {
    return pipeline.prepareAutomation(someAudio(), {}, prompt_, provider_, providerConfiguration_, configuration);
  }

  TemporaryDirectory folder_{"orvid-pipeline"};
  UserDefaults settings_;
  std::shared_ptr<OrvidTranscriptionCoordinator> coordinator_ = std::make_shared<OrvidTranscriptionCoordinator>();
  std::shared_ptr<FakeTranscriptionProvider> transcriber_ = std::make_shared<FakeTranscriptionProvider>();
  std::shared_ptr<FakePromptProcessor> rewriter_ = std::make_shared<FakePromptProcessor>();
  std::shared_ptr<FakeCUADriverClient> driver_ = std::make_shared<FakeCUADriverClient>();
  TranscriptionPrompt prompt_;
  AIProviderDescriptor provider_;
  AIProviderConfiguration providerConfiguration_;
};

TEST_F(OrvidAutomationPipelineTest, PreparesARewrittenProposalAndRunsItOnConfirmation) {
  rewriter_->rewrittenText = "Open Notes and type hello.";
  rewriter_->thinkingTime = std::chrono::microseconds(1234900);
  auto pipeline = makePipeline(true);

  OrvidAutomationProposal proposal = prepare(*pipeline);

  ASSERT_EQ(transcriber_->requests.size(), 1u);
  EXPECT_EQ(transcriber_->requests[0].audioFrames, someAudio());
  EXPECT_EQ(rewriter_->calls,
            std::vector<std::string>{"open notes and write hello|automation|openai|openai-main|gpt-4o"});
  EXPECT_EQ(proposal.cleanedText, "open notes and write hello");
  EXPECT_EQ(proposal.taskTitle, "Open Notes and type hello");
  EXPECT_EQ(proposal.promptDurationMilliseconds, 1234);
  EXPECT_EQ(pipeline->pendingProposal(), proposal);
  EXPECT_EQ(pipeline->currentState().stage, VoiceCaptureStage::awaitingConfirmation(proposal.requestID));

  driver_->exitCode = 2;
  EXPECT_EQ(pipeline->confirmAutomation(proposal.requestID, 45),
            (CUAExecutionResult{proposal.requestID, 2, "done", ""}));
  EXPECT_EQ(driver_->runs, (std::vector<CUAExecutionRequest>{{proposal.requestID, "Open Notes and type hello.", 45}}));
  EXPECT_EQ(pipeline->currentState(), OrvidExecutionState::idle());
  EXPECT_THROW(pipeline->confirmAutomation(proposal.requestID, 45), OrvidError);
}

TEST_F(OrvidAutomationPipelineTest, WithoutARewriteTheInstructionIsTheCleanedText) {
  // {with rewriter, with provider, rewritten text, rewrite duration}: a rewriter that
  // has nothing to say keeps the cleaned text but is timed.
  const std::vector<std::tuple<bool, bool, std::optional<std::string>, std::optional<long long>>> cases = {
      {false, true, "never", std::nullopt}, {true, false, "never", std::nullopt}, {true, true, std::nullopt, 0}};
  for (const auto& [withRewriter, withProvider, rewrittenText, duration] : cases) {
    rewriter_->rewrittenText = rewrittenText;
    auto pipeline = makePipeline(withRewriter);
    OrvidAutomationProposal proposal =
        pipeline->prepareAutomation(someAudio(), {}, prompt_, withProvider ? std::optional(provider_) : std::nullopt,
                                    providerConfiguration_, automationConfiguration());
    EXPECT_EQ(proposal.proposedInstruction, "open notes and write hello");
    EXPECT_EQ(proposal.promptDurationMilliseconds, duration);
    pipeline->cancelAutomation(proposal.requestID);
  }
  EXPECT_EQ(rewriter_->calls.size(), 1u);
}

TEST_F(OrvidAutomationPipelineTest, RefusesBeforeAnyWorkWhenAutomationCannotRun) {
  struct Case {
    std::vector<PCMFrame> audio;
    std::function<void(AIAutomationConfiguration&)> change;
    CUADriverReadiness readiness;
    OrvidError expected;
  };
  const auto unchanged = [](AIAutomationConfiguration&) {};
  const std::vector<Case> cases = {
      {{}, unchanged, CUADriverReadiness::notInstalled, OrvidError::emptyAudio()},
      {someAudio(), [](auto& c) { c.computerUseEnabled = false; }, CUADriverReadiness::ready,
       OrvidError::missingAutomationModel()},
      {someAudio(), [](auto& c) { c.automationModel->providerID = " \n"; }, CUADriverReadiness::ready,
       OrvidError::missingAutomationModel()},
      {someAudio(), unchanged, CUADriverReadiness::installedNotOnPath,
       OrvidError::cuaDriverNotReady(CUADriverReadiness::installedNotOnPath)},
  };
  auto pipeline = makePipeline(true);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected.what());
    driver_->statusCalls = 0;
    driver_->readiness = c.readiness;
    AIAutomationConfiguration configuration = automationConfiguration();
    c.change(configuration);
    try {
      pipeline->prepareAutomation(c.audio, {}, prompt_, provider_, providerConfiguration_, configuration);
      ADD_FAILURE() << "no error";
    } catch (const OrvidError& error) {
      EXPECT_EQ(error, c.expected);
    }
    // The driver is asked only once the request itself could run.
    EXPECT_EQ(driver_->statusCalls, c.expected.errorCase() == OrvidError::Case::cuaDriverNotReady ? 1 : 0);
    EXPECT_EQ(pipeline->currentState(), OrvidExecutionState::idle());
  }
  EXPECT_TRUE(transcriber_->requests.empty());

  // Browser use alone enables automation; a running daemon is good enough.
  AIAutomationConfiguration browserOnly = automationConfiguration();
  browserOnly.computerUseEnabled = false;
  browserOnly.browserUseEnabled = true;
  driver_->readiness = CUADriverReadiness::daemonRunning;
  EXPECT_NO_THROW(prepare(*pipeline, browserOnly));
}

TEST_F(OrvidAutomationPipelineTest, LaterFailuresFailTheCoordinatorWithTheRedactedMessage) {
  const std::string secret = "HTTP 401: Authorization: Bearer sk-live-9 rejected";
  const std::string redacted = "HTTP 401: Authorization: Bearer [REDACTED] rejected";
  const auto error = std::make_exception_ptr(std::runtime_error(secret));
  const std::string empty = OrvidError::emptyAudio().what();
  // {arrange, thrown message, shown message}
  const std::vector<std::tuple<std::function<void()>, std::string, std::string>> cases = {
      {[&] { transcriber_->error = error; }, secret, redacted},
      {[&] { rewriter_->error = error; }, secret, redacted},
      {[&] { transcriber_->result.text = " \u200B \n\t "; }, empty, empty},  // cleans to nothing
  };
  for (const auto& [arrange, thrown, shown] : cases) {
    transcriber_->error = rewriter_->error = nullptr;
    transcriber_->result.text = "open notes";
    rewriter_->rewrittenText = "x";
    arrange();
    auto pipeline = makePipeline(true);
    try {
      prepare(*pipeline);
      ADD_FAILURE() << "no error";
    } catch (const std::exception& caught) {
      EXPECT_EQ(std::string(caught.what()), thrown);
    }
    EXPECT_EQ(pipeline->currentState().errorMessage, shown);
    EXPECT_EQ(coordinator_->activeRequestID(), std::nullopt);
  }
}

TEST_F(OrvidAutomationPipelineTest, TitlesTheTaskByTheConfiguredMethodAndClampsTheMinimumConfidence) {
  // {method, rewritten text, minimum confidence, requires confirmation, title, clamped minimum}
  const std::vector<std::tuple<AIAutomationMethod, std::string, double, bool, std::string, double>> cases = {
      {AIAutomationMethod::script, R"({"title": "Empty the trash", "command": "rm -rf ~/.Trash/*"})", 1.7, false,
       "Empty the trash", 1.0},
      {AIAutomationMethod::computerUse, "# Open Safari\nthen search for weather", -0.3, true, "Open Safari", 0.0},
  };
  auto pipeline = makePipeline(true);
  for (const auto& [method, rewrittenText, minimum, requiresConfirmation, title, clampedMinimum] : cases) {
    rewriter_->rewrittenText = rewrittenText;
    AIAutomationConfiguration configuration = automationConfiguration();
    configuration.method = method;
    configuration.minimumTranscriptionConfidence = minimum;
    configuration.requiresConfirmation = requiresConfirmation;
    OrvidAutomationProposal proposal = prepare(*pipeline, configuration);
    EXPECT_EQ(proposal.method, AIAutomationMethod::computerUse);
    EXPECT_EQ(proposal.taskTitle, title);
    EXPECT_EQ(proposal.minimumTranscriptionConfidence, clampedMinimum);
    EXPECT_EQ(proposal.requiresConfirmation, requiresConfirmation);
    pipeline->cancelAutomation(proposal.requestID);
  }
}

TEST_F(OrvidAutomationPipelineTest, ConvertsTheInstructionToTheUsersChineseScript) {
  OrvidSettings settings;
  settings.chineseConversionMode = "s2t";
  OrvidSettingsPersistence::save(settings, settings_);
  transcriber_->result.text = "打开浏览器";
  rewriter_->rewrittenText = "打开软件";
  auto pipeline = makePipeline(true);
  EXPECT_EQ(prepare(*pipeline).proposedInstruction, "打開軟件");
}

TEST_F(OrvidAutomationPipelineTest, AConfirmationThatCannotStartKeepsTheProposalPending) {
  auto pipeline = makePipeline(false);
  EXPECT_THROW(pipeline->confirmAutomation(UUID::random(), 30), OrvidError);
  const OrvidAutomationProposal proposal = prepare(*pipeline);
  try {
    pipeline->confirmAutomation(UUID::random(), 30);
    ADD_FAILURE() << "no error";
  } catch (const OrvidError& error) {
    EXPECT_EQ(error, OrvidError::requestMismatch());
  }
  EXPECT_EQ(pipeline->pendingProposal(), proposal);
  EXPECT_EQ(pipeline->currentState().stage.kind, VoiceCaptureStage::Kind::awaitingConfirmation);

  coordinator_->cancel();  // the host abandoned the request behind the pipeline's back
  EXPECT_THROW(pipeline->confirmAutomation(proposal.requestID, 30), OrvidError);
  EXPECT_EQ(pipeline->pendingProposal(), proposal);
  EXPECT_TRUE(driver_->runs.empty());
}

TEST_F(OrvidAutomationPipelineTest, ADriverErrorFailsTheRequestWithTheRedactedMessageAndDropsTheProposal) {
  auto pipeline = makePipeline(false);
  OrvidAutomationProposal proposal = prepare(*pipeline);
  driver_->error = std::make_exception_ptr(std::runtime_error("driver said api_key=abc123"));
  EXPECT_THROW(pipeline->confirmAutomation(proposal.requestID, 30), std::runtime_error);
  EXPECT_EQ(pipeline->currentState().stage,
            VoiceCaptureStage::failed(proposal.requestID, "driver said api_key=[REDACTED]"));
  EXPECT_EQ(pipeline->pendingProposal(), std::nullopt);
}

TEST_F(OrvidAutomationPipelineTest, CancellingDropsTheProposalStopsTheDriverAndIdlesTheCoordinator) {
  auto pipeline = makePipeline(false);
  OrvidAutomationProposal proposal = prepare(*pipeline);
  UUID other = UUID::random();
  pipeline->cancelAutomation(other);
  EXPECT_EQ(pipeline->pendingProposal(), std::nullopt);
  EXPECT_EQ(driver_->cancelled, std::vector<UUID>{other});
  EXPECT_EQ(pipeline->currentState(), OrvidExecutionState::idle());
  EXPECT_THROW(pipeline->confirmAutomation(proposal.requestID, 30), OrvidError);
  EXPECT_NE(prepare(*pipeline).requestID, proposal.requestID);  // a new request can be prepared
}

// A processor whose process() takes the trailing stop token.
struct StoppableProcessor {
  std::optional<PromptPostProcessResult> process(const std::string& text, const TranscriptionPrompt&,
                                                 const AIProviderDescriptor&, const AIProviderConfiguration&,
                                                 const std::optional<std::string>& model, std::stop_token stop) {
    PromptPostProcessResult result;
    result.text = text + "|" + model.value_or("-") + (stop.stop_requested() ? "|stopped" : "");
    return result;
  }
};

TEST(PromptPostProcessorAdapterTest, ForwardsTheArgumentsAndTheStopToken) {
  std::stop_source stopped;
  stopped.request_stop();
  PromptPostProcessorAdapter<StoppableProcessor> adapter(StoppableProcessor{});
  EXPECT_EQ(adapter.process("hi", {}, {}, {}, "gpt", stopped.get_token())->text, "hi|gpt|stopped");
  EXPECT_EQ(adapter.process("hi", {}, {}, {}, std::nullopt)->text, "hi|-");
}

}  // namespace
}  // namespace orvid
