#include "orvid/pipeline/orvid_automation_pipeline.h"

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/testing/thrown.h"

namespace orvid {

namespace {

using Clock = std::chrono::steady_clock;

class FakeTranscriptionProvider : public TranscriptionProvider {
 public:
  std::string id() const override { return "fake"; }
  TranscriptionResult transcribe(const TranscriptionRequest&, std::stop_token) override {
    ++calls;
    if (error) std::rethrow_exception(error);
    return result;
  }
  ResultStream<TranscriptionPartialResult> stream(const TranscriptionRequest&, std::stop_token) override {
    throw OrvidError::unsupportedStreaming();
  }

  TranscriptionResult result{"  open   notes and write hello ", 0.8, "en", std::nullopt, std::nullopt};
  std::exception_ptr error;
  int calls = 0;
};

class FakePromptProcessor : public PromptPostProcessing {
 public:
  std::optional<PromptPostProcessResult> process(const std::string& text, const TranscriptionPrompt&,
                                                 const AIProviderDescriptor&, const AIProviderConfiguration&,
                                                 const std::optional<std::string>& model, std::stop_token) override {
    calls.push_back(text + "|" + model.value_or("-"));
    *clock += thinkingTime;
    if (!rewrittenText) return std::nullopt;
    PromptPostProcessResult result;
    result.text = *rewrittenText;
    return result;
  }

  std::shared_ptr<Clock::time_point> clock = std::make_shared<Clock::time_point>();
  Clock::duration thinkingTime{};
  std::optional<std::string> rewrittenText;
  std::vector<std::string> calls;  // transcript|default model
};

class FakeCUADriverClient : public CUADriverClient {
 public:
  CUADriverStatus status(std::stop_token) override {
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
  std::vector<CUAExecutionRequest> runs;
  std::vector<UUID> cancelled;
};

std::vector<PCMFrame> someAudio() { return {PCMFrame{Bytes(320, 0), 16000, 1, 160}}; }

AIAutomationConfiguration automationConfiguration() {
  AIAutomationConfiguration configuration;
  configuration.computerUseEnabled = true;
  configuration.automationModel = AIModelReference{"gpt-4o", "GPT-4o", "openai-main", true, std::nullopt};
  return configuration;
}

class OrvidAutomationPipelineTest : public ::testing::Test {
 protected:
  OrvidAutomationPipelineTest() : settings_(folder_ / "settings.json") {}

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

TEST_F(OrvidAutomationPipelineTest, PreparesARewrittenProposalAndRunsItOnConfirmationRedactingADriverError) {
  rewriter_->rewrittenText = "Open Notes and type hello.";
  rewriter_->thinkingTime = std::chrono::microseconds(1234900);
  auto pipeline = makePipeline(true);
  OrvidAutomationProposal proposal = prepare(*pipeline);
  EXPECT_EQ(rewriter_->calls, std::vector<std::string>{"open notes and write hello|gpt-4o"});
  EXPECT_EQ(proposal.promptDurationMilliseconds, 1234);

  driver_->exitCode = 2;
  EXPECT_EQ(pipeline->confirmAutomation(proposal.requestID, 45),
            (CUAExecutionResult{proposal.requestID, 2, "done", ""}));
  EXPECT_EQ(driver_->runs, (std::vector<CUAExecutionRequest>{{proposal.requestID, "Open Notes and type hello.", 45}}));
  EXPECT_EQ(pipeline->currentState(), OrvidExecutionState::idle());

  proposal = prepare(*pipeline);
  driver_->error = std::make_exception_ptr(std::runtime_error("driver said api_key=abc123"));
  EXPECT_THROW(pipeline->confirmAutomation(proposal.requestID, 30), std::runtime_error);
  EXPECT_EQ(pipeline->currentState().stage,
            VoiceCaptureStage::failed(proposal.requestID, "driver said api_key=[REDACTED]"));
  EXPECT_EQ(pipeline->pendingProposal(), std::nullopt);
}

TEST_F(OrvidAutomationPipelineTest, RefusesBeforeAnyWorkWhenAutomationCannotRun) {
  // {audio, computer use, readiness, expected}
  const std::vector<std::tuple<std::vector<PCMFrame>, bool, CUADriverReadiness, OrvidError>> cases = {
      {{}, true, CUADriverReadiness::notInstalled, OrvidError::emptyAudio()},
      {someAudio(), false, CUADriverReadiness::ready, OrvidError::missingAutomationModel()},
      {someAudio(), true, CUADriverReadiness::installedNotOnPath,
       OrvidError::cuaDriverNotReady(CUADriverReadiness::installedNotOnPath)},
  };
  auto pipeline = makePipeline(true);
  for (const auto& [audio, computerUse, readiness, expected] : cases) {
    driver_->readiness = readiness;
    AIAutomationConfiguration configuration = automationConfiguration();
    configuration.computerUseEnabled = computerUse;
    EXPECT_EQ(testing::thrown<OrvidError>([&] {
                pipeline->prepareAutomation(audio, {}, prompt_, provider_, providerConfiguration_, configuration);
              }),
              expected);
  }
  EXPECT_EQ(transcriber_->calls, 0);
  EXPECT_EQ(pipeline->currentState(), OrvidExecutionState::idle());
}

TEST_F(OrvidAutomationPipelineTest, LaterFailuresFailTheCoordinatorWithTheRedactedMessage) {
  transcriber_->error = std::make_exception_ptr(std::runtime_error("HTTP 401: Authorization: Bearer sk-live-9"));
  auto pipeline = makePipeline(true);
  EXPECT_THROW(prepare(*pipeline), std::runtime_error);
  EXPECT_EQ(pipeline->currentState().errorMessage, "HTTP 401: Authorization: Bearer [REDACTED]");
  transcriber_->error = nullptr;
  transcriber_->result.text = " \u200B \n\t ";
  EXPECT_EQ(testing::thrown<OrvidError>([&] { prepare(*pipeline); }), OrvidError::emptyAudio());
  EXPECT_EQ(pipeline->currentState().errorMessage, OrvidError::emptyAudio().what());
}

TEST_F(OrvidAutomationPipelineTest, TitlesTheTaskByTheConfiguredMethodOrTheCleanedTextAndClampsTheMinimumConfidence) {
  // {method, rewritten text, minimum confidence, title, clamped minimum}
  const std::vector<std::tuple<AIAutomationMethod, std::optional<std::string>, double, std::string, double>> cases = {
      {AIAutomationMethod::script, R"({"title": "Empty the trash", "command": "rm"})", 1.7, "Empty the trash", 1.0},
      {AIAutomationMethod::computerUse, "# Open Safari\nthen search for weather", -0.3, "Open Safari", 0.0},
      {AIAutomationMethod::computerUse, std::nullopt, 0.5, "open notes and write hello", 0.5},
  };
  auto pipeline = makePipeline(true);
  for (const auto& [method, rewrittenText, minimum, title, clampedMinimum] : cases) {
    rewriter_->rewrittenText = rewrittenText;
    AIAutomationConfiguration configuration = automationConfiguration();
    configuration.method = method;
    configuration.minimumTranscriptionConfidence = minimum;
    OrvidAutomationProposal proposal = prepare(*pipeline, configuration);
    EXPECT_EQ(proposal.taskTitle, title);
    EXPECT_EQ(proposal.minimumTranscriptionConfidence, clampedMinimum);
    pipeline->cancelAutomation(proposal.requestID);
  }
}

TEST_F(OrvidAutomationPipelineTest, WithoutARewriterAConfirmationThatCannotStartKeepsTheProposalUntilCancelled) {
  auto pipeline = makePipeline(false);
  const OrvidAutomationProposal proposal = prepare(*pipeline);
  EXPECT_EQ(proposal.proposedInstruction, "open notes and write hello");
  EXPECT_EQ(testing::thrownCase<OrvidError>([&] { pipeline->confirmAutomation(UUID::random(), 30); }),
            OrvidError::Case::requestMismatch);
  coordinator_->cancel();  // the host abandoned the request behind the pipeline's back
  EXPECT_THROW(pipeline->confirmAutomation(proposal.requestID, 30), OrvidError);
  EXPECT_EQ(pipeline->pendingProposal(), proposal);

  const UUID other = UUID::random();
  pipeline->cancelAutomation(other);
  EXPECT_EQ(pipeline->pendingProposal(), std::nullopt);
  EXPECT_EQ(driver_->cancelled, std::vector<UUID>{other});
}

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
