#include "orvid/transcription/local/models/hugging_face_download_endpoints.h"

#include <fstream>

#include <gtest/gtest.h>

#include "orvid/platform/orvid_http_client.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/testing/scoped_environment_variable.h"
#include "orvid/testing/thrown.h"
#include "orvid/transcription/local/models/mlx_model_download_support.h"
#include "orvid/transcription/local/models/model_scope_mlx_model_downloader.h"
#include "orvid/transcription/local/speech_model_library.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;
namespace endpoints = HuggingFaceDownloadEndpoints;
using Source = ModelDownloadSource;

TEST(HuggingFaceDownloadEndpointsTest, ResolvesTheSourcesToTryFromTheSettings) {
  struct Case {
    nlohmann::json settings;
    std::vector<Source> sources;
  };
  const std::vector<Case> cases = {
      {nlohmann::json::object(), {Source::huggingFace}},
      {{{"modelDownloadSource", "modelScope"}},
       {Source::modelScope, Source::huggingFaceMirror, Source::huggingFace}},
      {{{"useHfMirror", true}}, {Source::huggingFaceMirror}},
      {{{"modelDownloadSource", ""}, {"useHfMirror", true}}, {Source::huggingFaceMirror}},
      {{{"modelDownloadSource", "huggingFace"}, {"useHfMirror", true}}, {Source::huggingFace}},
  };
  TemporaryDirectory folder;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.settings.dump());
    std::ofstream(folder / "settings.json") << c.settings.dump();
    UserDefaults defaults(folder / "settings.json");
    EXPECT_EQ(endpoints::downloadSources(defaults), c.sources);
    EXPECT_EQ(endpoints::resolvedHubBaseURL(defaults), endpoints::hubBaseURL(c.sources.front()));
  }
}

TEST(HuggingFaceDownloadEndpointsTest, RewritesHubURLsForTheMirrorAndTheEndpointOverride) {
  auto url = [](const char* text) { return *URL::parse(text); };
  struct Case {
    const char* input;
    Source source;
    const char* expected;
  };
  const std::vector<Case> cases = {
      {"https://huggingface.co/org/m/resolve/main/a.bin?x=1", Source::huggingFaceMirror,
       "https://hf-mirror.com/org/m/resolve/main/a.bin?x=1"},
      {"https://cdn.huggingface.co/a.bin", Source::huggingFaceMirror, "https://hf-mirror.com/a.bin"},
      {"https://example.com/a.bin", Source::huggingFaceMirror, "https://example.com/a.bin"},
      {"https://huggingface.co/a.bin", Source::huggingFace, "https://huggingface.co/a.bin"},
      {"https://huggingface.co/a.bin", Source::modelScope, "https://huggingface.co/a.bin"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(endpoints::rewriting(url(c.input), c.source), url(c.expected)) << c.input;
  }
  EXPECT_EQ(endpoints::rewriting(std::nullopt, Source::huggingFaceMirror), std::nullopt);

  {
    testing::ScopedEnvironmentVariable endpoint("HF_ENDPOINT", "http://127.0.0.1:8123/root");
    EXPECT_EQ(endpoints::applyingHubEndpointOverride(url("https://huggingface.co/org/m/resolve/main/a.bin?x=1")),
              url("http://127.0.0.1:8123/org/m/resolve/main/a.bin?x=1"));
  }
  testing::ScopedEnvironmentVariable unset("HF_ENDPOINT", std::nullopt);
  EXPECT_EQ(endpoints::applyingHubEndpointOverride(url("https://huggingface.co/a")), url("https://huggingface.co/a"));
  TemporaryDirectory folder;
  UserDefaults defaults(folder / "settings.json");
  defaults.set("modelDownloadSource", "huggingFaceMirror");
  endpoints::applyEndpointEnvironment(defaults);
  EXPECT_EQ(endpoints::hubEndpointOverride(), endpoints::mirrorHubBaseURL());
  EXPECT_EQ(endpoints::applyingHubEndpointOverride(url("https://huggingface.co/a")), url("https://huggingface.co/a"));
  defaults.set("modelDownloadSource", "huggingFace");
  endpoints::applyEndpointEnvironment(defaults);
  EXPECT_EQ(endpoints::hubEndpointOverride(), std::nullopt);
}

TEST(ModelScopeFileListTest, DecodesLenientlyAndSkipsMistypedEntries) {
  auto envelope = parseModelScopeFileList(
      R"({"Code":200,"Success":"yes","Data":{"Files":[{"Path":"a.json","Size":3,"Type":"blob"},7,{"Path":1}]}})");
  EXPECT_EQ(envelope.code, 200);
  EXPECT_FALSE(envelope.success);
  EXPECT_EQ(envelope.files, (std::vector<ModelScopeFile>{{"a.json", 3, "blob"}, {"", 0, ""}}));
  EXPECT_EQ(parseModelScopeFileList(R"({"Success":true})").files, std::nullopt);
  EXPECT_TRUE(testing::thrown<OrvidHTTPError>([] { parseModelScopeFileList("[]"); }));
}

TEST(MLXModelDownloadSupportTest, MatchesGlobsAndSelectsCheckpointFiles) {
  using namespace MLXModelDownloadSupport;
  EXPECT_TRUE(matchesGlob("am.mvn", "*.mvn"));
  EXPECT_TRUE(matchesGlob("tokenizer.json", "tokenizer*"));
  EXPECT_TRUE(matchesGlob("a.b.c", "*.*.c"));
  EXPECT_FALSE(matchesGlob("AM.MVN", "*.mvn"));
  EXPECT_FALSE(matchesGlob("am.mvnx", "*.mvn"));
  auto senseVoice = LocalTranscriptionEngineType::mlxSenseVoice;
  auto parakeet = LocalTranscriptionEngineType::mlxParakeet;
  EXPECT_TRUE(isCheckpointFile("am.mvn", senseVoice));
  EXPECT_FALSE(isCheckpointFile("am.mvn", parakeet));
  EXPECT_TRUE(isCheckpointFile("sub/Model.SafeTensors", parakeet));
  EXPECT_FALSE(isCheckpointFile(".hidden.json", parakeet));
  EXPECT_FALSE(isCheckpointFile("README.md", parakeet));
  EXPECT_FALSE(isContainedRelativePath("../x.json"));
  EXPECT_TRUE(isValidRepositoryID("mlx-community/parakeet-tdt-0.6b"));
  EXPECT_FALSE(isValidRepositoryID("no-owner"));
  EXPECT_FALSE(isValidRepositoryID("a/b/c"));
}

TEST(MLXModelDownloadSupportTest, ChecksThatACheckpointFolderIsComplete) {
  struct Case {
    const char* name;
    LocalTranscriptionEngineType type;
    std::vector<std::pair<const char*, const char*>> files;
    bool installed;
  };
  using Type = LocalTranscriptionEngineType;
  const std::vector<Case> cases = {
      {"weights and config", Type::mlxParakeet, {{"config.json", "{}"}, {"w.safetensors", "x"}}, true},
      {"empty weights", Type::mlxParakeet, {{"config.json", "{}"}, {"w.safetensors", ""}}, false},
      {"no config", Type::mlxParakeet, {{"w.safetensors", "x"}}, false},
      {"sense voice without am.mvn", Type::mlxSenseVoice, {{"config.json", "{}"}, {"w.safetensors", "x"}}, false},
      {"sense voice", Type::mlxSenseVoice, {{"config.json", "{}"}, {"w.safetensors", "x"}, {"am.mvn", "m"}}, true},
      {"cohere without .model", Type::mlxCohere, {{"config.json", "{}"}, {"w.safetensors", "x"}}, false},
      {"cohere", Type::mlxCohere, {{"config.json", "{}"}, {"w.safetensors", "x"}, {"t.model", "m"}}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TemporaryDirectory folder;
    for (const auto& [name, contents] : c.files) std::ofstream(folder / name) << contents;
    LocalTranscriptionModelDescriptor descriptor;
    descriptor.engineType = c.type;
    EXPECT_EQ(MLXModelDownloadSupport::isModelInstalled(descriptor, folder.path()), c.installed);
  }
  EXPECT_FALSE(MLXModelDownloadSupport::isModelInstalled({}, "/nonexistent/orvid-model"));
}

TEST(SpeechModelLibraryTest, AppleOnlyLibrariesSayTheyAreNotSupportedOnLinux) {
  auto error = testing::thrown<SpeechModelLibraryError>([] { makeWhisperKitModelLoader(); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->errorCase(), SpeechModelLibraryError::Case::notSupportedOnPlatform);
  std::vector<float> a{1, 0}, b{0, 1};
  EXPECT_EQ(cosineSimilarity(a, a), 1.0);
  EXPECT_EQ(cosineSimilarity(a, b), 0.0);
}

}  // namespace
}  // namespace orvid
