#include "orvid/core/corelib/local_transcription_model.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvid {
namespace {

TEST(LocalTranscriptionModelTest, DecodingRejectsUnknownCasesAndRelativeURLs) {
  LocalTranscriptionModelDescriptor model;
  model.id = "whispercpp-base";
  model.downloadURL = URL::parse("https://huggingface.co/ggerganov/whisper.cpp/resolve/main/ggml-base.bin");
  const nlohmann::json document = model;
  ASSERT_EQ(document.get<LocalTranscriptionModelDescriptor>(), model);
  for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
           {"engineType", "whisperKitPro"}, {"artifactFormat", "gguf"}, {"downloadURL", "models/ggml-base.bin"}}) {
    nlohmann::json broken = document;
    broken[key] = value;
    EXPECT_THROW(broken.get<LocalTranscriptionModelDescriptor>(), nlohmann::json::exception) << key;
  }
  EXPECT_FALSE(localTranscriptionEngineType("WhisperCpp"));
  EXPECT_FALSE(modelDownloadSource("modelscope"));
}

TEST(LocalTranscriptionModelTest, OnlyTheIdleUnloadPolicyCarriesSecondsAndKeepsThemWhole) {
  const auto longest = LocalTranscriptionEngineUnloadPolicy::afterIdle(UINT64_MAX);
  const nlohmann::json json = longest;
  EXPECT_EQ(json.at("idleSeconds").get<std::uint64_t>(), UINT64_MAX);
  EXPECT_EQ(json.get<LocalTranscriptionEngineUnloadPolicy>(), longest);
  EXPECT_FALSE(nlohmann::json(LocalTranscriptionEngineUnloadPolicy::keepLoaded()).contains("idleSeconds"));
  for (const char* document : {R"({"kind":"afterIdleSeconds"})", R"({"kind":"never"})"}) {
    EXPECT_THROW(nlohmann::json::parse(document).get<LocalTranscriptionEngineUnloadPolicy>(),
                 nlohmann::json::exception)
        << document;
  }
}

}  // namespace
}  // namespace orvid
