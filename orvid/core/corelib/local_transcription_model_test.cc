#include "orvid/core/corelib/local_transcription_model.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace orvid {
namespace {

LocalTranscriptionModelDescriptor fullDescriptor() {
  LocalTranscriptionModelDescriptor model;
  model.id = "whisperkit-small";
  model.name = "Whisper Small (WhisperKit)";
  model.fileName = "openai_whisper-small";
  model.downloadURL = URL::parse("https://huggingface.co/some/repo/resolve/main/model.tar.gz?download=true");
  model.approximateSizeMB = 487;
  model.downloadSizeBytes = 4'000'000'001LL;
  model.isDirectory = true;
  model.engineType = LocalTranscriptionEngineType::whisperKit;
  model.languageCodes = {"auto", "en", "zh-Hans"};
  model.whisperKitVariant = "openai_whisper-small";
  model.artifactFormat = LocalTranscriptionArtifactFormat::whisperKitManaged;
  model.repositoryID = "argmaxinc/whisperkit-coreml";
  return model;
}

TEST(LocalTranscriptionModelTest, DescriptorSurvivesAJSONRoundTripWithEveryField) {
  const auto model = fullDescriptor();
  const nlohmann::json json = model;
  EXPECT_EQ(json.at("downloadURL"), "https://huggingface.co/some/repo/resolve/main/model.tar.gz?download=true");
  EXPECT_EQ(json.at("engineType"), "whisperKit");
  EXPECT_EQ(json.at("artifactFormat"), "whisperKitManaged");
  EXPECT_EQ(json.at("downloadSizeBytes").get<long long>(), 4'000'000'001LL);
  EXPECT_EQ(json.get<LocalTranscriptionModelDescriptor>(), model);
}

TEST(LocalTranscriptionModelTest, DescriptorWithoutOptionalsOmitsTheirKeys) {
  LocalTranscriptionModelDescriptor model;
  model.id = "apple-speech";
  model.name = "Apple Speech";
  model.fileName = "apple-speech";
  model.engineType = LocalTranscriptionEngineType::appleSpeech;
  model.artifactFormat = LocalTranscriptionArtifactFormat::systemSpeech;
  const nlohmann::json json = model;
  for (const char* key : {"downloadURL", "downloadSizeBytes", "whisperKitVariant", "repositoryID"}) {
    EXPECT_FALSE(json.contains(key)) << key;
  }
  EXPECT_EQ(json.get<LocalTranscriptionModelDescriptor>(), model);
}

TEST(LocalTranscriptionModelTest, DecodingRejectsUnknownCasesAndRelativeURLs) {
  auto document = nlohmann::json(fullDescriptor());
  auto badEngine = document;
  badEngine["engineType"] = "whisperKitPro";
  auto badFormat = document;
  badFormat["artifactFormat"] = "gguf";
  auto badURL = document;
  badURL["downloadURL"] = "models/ggml-base.bin";
  EXPECT_THROW(badEngine.get<LocalTranscriptionModelDescriptor>(), nlohmann::json::exception);
  EXPECT_THROW(badFormat.get<LocalTranscriptionModelDescriptor>(), nlohmann::json::exception);
  EXPECT_THROW(badURL.get<LocalTranscriptionModelDescriptor>(), nlohmann::json::exception);
}

TEST(LocalTranscriptionModelTest, EngineTypeCasesKeepTheirPositionsAndNames) {
  struct Row {
    int index;
    const char* name;
  };
  const Row rows[] = {{0, "whisperKit"},        {1, "whisperCpp"},           {2, "mlxSenseVoice"},
                      {5, "mlxParakeet"},       {7, "appleSpeech"},          {8, "mlxCohere"},
                      {9, "mlxQwen3ASR"},       {10, "mlxVoxtral"},          {13, "mlxFireRedASR"},
                      {15, "speechSwiftQwen3"}, {19, "speechSwiftNemotron"}, {21, "speechSwiftOmnilingualMLX"}};
  for (const auto& row : rows) {
    auto type = static_cast<LocalTranscriptionEngineType>(row.index);
    EXPECT_EQ(rawValue(type), row.name) << row.index;
    EXPECT_EQ(caseIndex(type), row.index);
    EXPECT_EQ(localTranscriptionEngineType(row.name), type) << row.name;
  }
  EXPECT_FALSE(localTranscriptionEngineType("WhisperCpp"));
  EXPECT_FALSE(localTranscriptionEngineType("speechSwiftOmnilingualMLX "));
}

TEST(LocalTranscriptionModelTest, ArtifactFormatsAndDownloadSourcesUseTheirCaseNames) {
  const char* formats[] = {"whisperKitManaged", "whisperCppModel",   "mlxCheckpointDirectory",
                           "systemSpeech",      "speechSwiftModule", "onnxRuntimeBundle"};
  for (int i = 0; i < 6; ++i) {
    auto format = static_cast<LocalTranscriptionArtifactFormat>(i);
    EXPECT_EQ(rawValue(format), formats[i]);
    EXPECT_EQ(localTranscriptionArtifactFormat(formats[i]), format);
  }
  EXPECT_EQ(rawValue(ModelDownloadSource::huggingFace), "huggingFace");
  EXPECT_EQ(rawValue(ModelDownloadSource::huggingFaceMirror), "huggingFaceMirror");
  EXPECT_EQ(rawValue(ModelDownloadSource::modelScope), "modelScope");
  EXPECT_EQ(modelDownloadSource("modelScope"), ModelDownloadSource::modelScope);
  EXPECT_FALSE(modelDownloadSource("modelscope"));
  EXPECT_FALSE(modelDownloadSource(""));
}

TEST(LocalTranscriptionModelTest, UnloadPoliciesRoundTripAndOnlyTheIdlePolicyCarriesSeconds) {
  const LocalTranscriptionEngineUnloadPolicy policies[] = {
      LocalTranscriptionEngineUnloadPolicy::afterIdle(30),
      LocalTranscriptionEngineUnloadPolicy::afterIdle(UINT64_MAX),
      LocalTranscriptionEngineUnloadPolicy::keepLoaded(),
      LocalTranscriptionEngineUnloadPolicy::immediately(),
  };
  for (const auto& policy : policies) {
    const nlohmann::json json = policy;
    EXPECT_EQ(json.contains("idleSeconds"),
              policy.kind == LocalTranscriptionEngineUnloadPolicy::Kind::afterIdleSeconds);
    EXPECT_EQ(json.get<LocalTranscriptionEngineUnloadPolicy>(), policy) << json.dump();
  }
  EXPECT_EQ(nlohmann::json(LocalTranscriptionEngineUnloadPolicy::afterIdle(UINT64_MAX))
                .at("idleSeconds")
                .get<std::uint64_t>(),
            UINT64_MAX);
  EXPECT_THROW(nlohmann::json::parse(R"({"kind":"afterIdleSeconds"})").get<LocalTranscriptionEngineUnloadPolicy>(),
               nlohmann::json::exception);
  EXPECT_THROW(nlohmann::json::parse(R"({"kind":"never"})").get<LocalTranscriptionEngineUnloadPolicy>(),
               nlohmann::json::exception);
}

TEST(LocalTranscriptionModelTest, EngineStateRoundTripsEveryPhase) {
  const LocalTranscriptionEnginePhase phases[] = {
      LocalTranscriptionEnginePhase::unloaded(),
      LocalTranscriptionEnginePhase::loading("whispercpp-base"),
      LocalTranscriptionEnginePhase::loaded("whispercpp-base"),
      LocalTranscriptionEnginePhase::failed("whispercpp-base", "Authorization: Bearer [REDACTED]"),
  };
  for (const auto& phase : phases) {
    LocalTranscriptionEngineState state{phase, {"a", "b"}, phase.message};
    const nlohmann::json json = state;
    EXPECT_EQ(json.at("phase").at("kind"), rawValue(phase.kind));
    EXPECT_EQ(json.get<LocalTranscriptionEngineState>(), state) << json.dump();
  }
  const nlohmann::json unloaded = LocalTranscriptionEngineState::unloaded();
  EXPECT_EQ(unloaded, nlohmann::json::parse(R"({"phase":{"kind":"unloaded"},"loadedModelIDs":[]})"));
}

TEST(LocalTranscriptionModelTest, ModelStateRoundTripsWithAndWithoutProgress) {
  LocalTranscriptionModelState downloading{
      "whispercpp-base", false, true, false, 73'000'000, 0.5, std::nullopt, 1.25e6, "/models/ggml-base.bin"};
  LocalTranscriptionModelState idle{"apple-speech", true,         false,        false,       0,
                                    std::nullopt,   std::nullopt, std::nullopt, std::nullopt};
  for (const auto& state : {downloading, idle}) {
    const nlohmann::json json = state;
    EXPECT_EQ(json.get<LocalTranscriptionModelState>(), state) << json.dump();
  }
  const nlohmann::json json = idle;
  EXPECT_FALSE(json.contains("progress"));
  EXPECT_FALSE(json.contains("path"));
}

}  // namespace
}  // namespace orvid
