// The built-in catalogue of speech-to-text providers and on-device models.
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"

namespace orvid {
namespace {

using API = CloudTranscriptionProviderAPI;
using EngineType = LocalTranscriptionEngineType;
using Format = LocalTranscriptionArtifactFormat;
using Codes = std::vector<std::string>;

URL url(std::string_view text) { return URL::parse(text).value(); }

Codes withAuto(const Codes& codes) {
  Codes result{"auto"};
  result.insert(result.end(), codes.begin(), codes.end());
  return result;
}

// Whisper's languages in its tokenizer's order; Chinese as the two scripts the
// language picker offers.
const Codes& whisperLanguages() {
  static const Codes codes{
      "en", "zh-Hans", "zh-Hant", "de", "es", "ru", "ko", "fr", "ja", "pt",  "tr", "pl", "ca", "nl", "ar", "sv",  "it",
      "id", "hi",      "fi",      "vi", "he", "uk", "el", "ms", "cs", "ro",  "da", "hu", "ta", "no", "th", "ur",  "hr",
      "bg", "lt",      "la",      "mi", "ml", "cy", "sk", "te", "fa", "lv",  "bn", "sr", "az", "sl", "kn", "et",  "mk",
      "br", "eu",      "is",      "hy", "ne", "mn", "bs", "kk", "sq", "sw",  "gl", "mr", "pa", "si", "km", "sn",  "yo",
      "so", "af",      "oc",      "ka", "be", "tg", "sd", "gu", "am", "yi",  "lo", "uz", "fo", "ht", "ps", "tk",  "nn",
      "mt", "sa",      "lb",      "my", "bo", "tl", "mg", "as", "tt", "haw", "ln", "ha", "ba", "jw", "su", "yue",
  };
  return codes;
}

// The 25 European languages of Parakeet TDT 0.6B v3.
const Codes& parakeetV3Languages() {
  static const Codes codes{"bg", "hr", "cs", "da", "nl", "en", "et", "fi", "fr", "de", "el", "hu", "it",
                           "lv", "lt", "mt", "pl", "pt", "ro", "sk", "sl", "es", "sv", "ru", "uk"};
  return codes;
}

// Qwen3-ASR's 30 languages (the Chinese dialects are recognised under Chinese).
const Codes& qwen3ASRLanguages() {
  static const Codes codes{"zh-Hans", "zh-Hant", "en", "yue", "ar", "de", "fr", "es", "pt", "id", "it",
                           "ko",      "ru",      "th", "vi",  "ja", "tr", "hi", "ms", "nl", "sv", "da",
                           "fi",      "pl",      "cs", "fil", "fa", "el", "hu", "mk", "ro"};
  return codes;
}

// Voxtral's 13 languages.
const Codes& voxtralLanguages() {
  static const Codes codes{"en", "zh-Hans", "zh-Hant", "hi", "es", "ar", "fr",
                           "pt", "ru",      "de",      "ja", "ko", "it", "nl"};
  return codes;
}

// Deepgram Nova-3's monolingual languages.
const Codes& deepgramNova3Languages() {
  static const Codes codes{"en", "es", "fr", "de", "hi", "ru", "pt", "ja", "it", "nl",      "bg",
                           "ca", "cs", "da", "et", "fi", "el", "hu", "id", "ko", "lv",      "lt",
                           "ms", "no", "pl", "ro", "sk", "sv", "tr", "uk", "vi", "zh-Hans", "zh-Hant"};
  return codes;
}

// Soniox's languages.
const Codes& sonioxLanguages() {
  static const Codes codes{"af", "sq", "ar", "az", "eu", "be", "bn", "bs", "bg", "ca", "zh-Hans", "zh-Hant", "hr",
                           "cs", "da", "nl", "en", "et", "fi", "fr", "gl", "de", "el", "gu",      "he",      "hi",
                           "hu", "id", "it", "ja", "kn", "kk", "ko", "lv", "lt", "mk", "ms",      "ml",      "mr",
                           "no", "fa", "pl", "pt", "pa", "ro", "ru", "sr", "sk", "sl", "es",      "sw",      "sv",
                           "tl", "ta", "te", "th", "tr", "uk", "ur", "vi", "cy"};
  return codes;
}

CloudTranscriptionProviderDescriptor cloud(API api, std::optional<URL> baseURL, Codes models,
                                           std::optional<URL> realtimeBaseURL = std::nullopt,
                                           Codes realtimeModels = {}) {
  CloudTranscriptionProviderDescriptor descriptor;
  descriptor.baseURL = std::move(baseURL);
  descriptor.defaultModelID = models.empty() ? std::string() : models.front();
  descriptor.modelIDs = std::move(models);
  descriptor.realtimeBaseURL = std::move(realtimeBaseURL);
  if (!realtimeModels.empty()) descriptor.defaultRealtimeModelID = realtimeModels.front();
  descriptor.realtimeModelIDs = std::move(realtimeModels);
  descriptor.api = api;
  return descriptor;
}

TranscriptionProviderDescriptor provider(std::string id, std::string name, Codes languages,
                                         CloudTranscriptionProviderDescriptor descriptor) {
  return {std::move(id), std::move(name), std::move(languages),
          TranscriptionProviderBackend::cloud(std::move(descriptor))};
}

std::vector<TranscriptionProviderDescriptor> cloudProviders() {
  const std::string openAIBase = "https://api.openai.com/v1";
  return {
      provider(
          "openai", "OpenAI", withAuto(whisperLanguages()),
          cloud(API::openAICompatible, url(openAIBase), {"gpt-4o-transcribe", "gpt-4o-mini-transcribe", "whisper-1"},
                url(openAIBase), {"gpt-4o-transcribe", "gpt-4o-mini-transcribe", "whisper-1"})),
      provider("groq", "Groq", withAuto(whisperLanguages()),
               cloud(API::openAICompatible, url("https://api.groq.com/openai/v1"),
                     {"whisper-large-v3-turbo", "whisper-large-v3"})),
      // A self-hosted or third-party server speaking the same protocol; the host
      // supplies its base URL.
      provider("openai-compatible", "OpenAI-compatible server", {"auto"},
               cloud(API::openAICompatible, std::nullopt, {"whisper-1"})),
      provider("deepgram", "Deepgram", deepgramNova3Languages(),
               cloud(API::deepgram, url("https://api.deepgram.com/v1"), {"nova-3", "nova-2"},
                     url("wss://api.deepgram.com/v1/listen"), {"nova-3", "nova-2"})),
      provider("elevenlabs", "ElevenLabs", withAuto(whisperLanguages()),
               cloud(API::elevenLabs, url("https://api.elevenlabs.io/v1"), {"scribe_v2", "scribe_v1"})),
      provider("cartesia", "Cartesia", whisperLanguages(),
               cloud(API::cartesia, url("https://api.cartesia.ai"), {"ink-whisper"})),
      provider("mistral", "Mistral", withAuto(voxtralLanguages()),
               cloud(API::mistral, url("https://api.mistral.ai"), {"voxtral-mini-latest"})),
      provider("soniox", "Soniox", withAuto(sonioxLanguages()),
               cloud(API::soniox, url("https://api.soniox.com/v1"), {"stt-async-v5"},
                     url("wss://stt-rt.soniox.com/transcribe-websocket"), {"stt-rt-v5", "stt-rt-v4"})),
      provider("assemblyai", "AssemblyAI", withAuto(whisperLanguages()),
               cloud(API::assemblyAI, url("https://api.assemblyai.com"),
                     {"universal-2", "universal-3-pro", "universal-3-5-pro"})),
      provider("doubao", "Doubao (Volcengine)",
               {"auto", "zh-Hans", "en", "ja", "id", "es", "pt", "de", "fr", "ko", "fil", "ms", "th", "ar"},
               cloud(API::doubao, url("https://openspeech.bytedance.com/api/v3/auc/bigmodel"), {"bigmodel"})),
      provider("glm", "Zhipu GLM", {"auto", "zh-Hans", "zh-Hant", "en"},
               cloud(API::glm, url("https://open.bigmodel.cn/api/paas/v4/audio/transcriptions"), {"glm-asr-2512"})),
      provider("stepfun", "StepFun", {"zh-Hans", "en"},
               cloud(API::stepFun, url("https://api.stepfun.com/v1/audio/asr/sse"),
                     {"stepaudio-2.5-asr", "stepaudio-2-asr-pro"}, url("wss://api.stepfun.com/v1/realtime/asr/stream"),
                     {"stepaudio-2.5-asr"})),
      provider("aliyun-bailian", "Aliyun Bailian (DashScope)",
               {"auto", "zh-Hans", "zh-Hant", "en", "yue", "ja", "ko", "de", "fr", "es", "it", "pt", "ru", "ar"},
               cloud(API::aliyunCompatible, url("https://dashscope.aliyuncs.com/compatible-mode/v1/chat/completions"),
                     {"qwen3-asr-flash"}, url("wss://dashscope.aliyuncs.com/api-ws/v1/realtime"),
                     {"qwen3-asr-flash-realtime", "fun-asr-realtime", "paraformer-realtime-v2"})),
  };
}

int megabytes(std::int64_t bytes) { return static_cast<int>(std::llround(static_cast<double>(bytes) / 1'000'000.0)); }

// One single-file ggml model from the whisper.cpp repository on Hugging Face.
LocalTranscriptionModelDescriptor whisperCpp(std::string id, std::string name, std::string fileName, std::int64_t bytes,
                                             Codes languages) {
  LocalTranscriptionModelDescriptor model;
  model.id = std::move(id);
  model.name = std::move(name);
  model.downloadURL = url("https://huggingface.co/ggerganov/whisper.cpp/resolve/main/" + fileName);
  model.fileName = std::move(fileName);
  model.approximateSizeMB = megabytes(bytes);
  model.downloadSizeBytes = bytes;
  model.isDirectory = false;
  model.engineType = EngineType::whisperCpp;
  model.languageCodes = std::move(languages);
  model.artifactFormat = Format::whisperCppModel;
  return model;
}

// A WhisperKit Core ML variant from Argmax's repository.
LocalTranscriptionModelDescriptor whisperKit(std::string id, std::string name, std::string variant, int sizeMB) {
  LocalTranscriptionModelDescriptor model;
  model.id = std::move(id);
  model.name = std::move(name);
  model.fileName = variant;
  model.approximateSizeMB = sizeMB;
  model.isDirectory = true;
  model.engineType = EngineType::whisperKit;
  model.languageCodes = withAuto(whisperLanguages());
  model.whisperKitVariant = std::move(variant);
  model.artifactFormat = Format::whisperKitManaged;
  model.repositoryID = "argmaxinc/whisperkit-coreml";
  return model;
}

// A checkpoint folder (config.json and safetensors) for the MLX engines.
LocalTranscriptionModelDescriptor mlx(std::string id, std::string name, EngineType engine, std::string repository,
                                      int sizeMB, Codes languages) {
  LocalTranscriptionModelDescriptor model;
  model.fileName = id;
  model.id = std::move(id);
  model.name = std::move(name);
  model.approximateSizeMB = sizeMB;
  model.isDirectory = true;
  model.engineType = engine;
  model.languageCodes = std::move(languages);
  model.artifactFormat = Format::mlxCheckpointDirectory;
  model.repositoryID = std::move(repository);
  return model;
}

// A model of the speech modules, which fetch their own files from `repository`.
LocalTranscriptionModelDescriptor speechModule(std::string id, std::string name, EngineType engine,
                                               std::string repository, int sizeMB, Codes languages) {
  auto model = mlx(std::move(id), std::move(name), engine, std::move(repository), sizeMB, std::move(languages));
  model.artifactFormat = Format::speechSwiftModule;
  return model;
}

std::vector<LocalTranscriptionModelDescriptor> localModels() {
  const Codes multilingual = withAuto(whisperLanguages());
  const Codes english{"en"};
  std::vector<LocalTranscriptionModelDescriptor> models{
      whisperCpp("whispercpp-tiny", "Whisper Tiny (whisper.cpp)", "ggml-tiny.bin", 77691713, multilingual),
      whisperCpp("whispercpp-tiny-en", "Whisper Tiny English (whisper.cpp)", "ggml-tiny.en.bin", 77704715, english),
      whisperCpp("whispercpp-base", "Whisper Base (whisper.cpp)", "ggml-base.bin", 147951465, multilingual),
      whisperCpp("whispercpp-base-en", "Whisper Base English (whisper.cpp)", "ggml-base.en.bin", 147964211, english),
      whisperCpp("whispercpp-small", "Whisper Small (whisper.cpp)", "ggml-small.bin", 487601967, multilingual),
      whisperCpp("whispercpp-small-en", "Whisper Small English (whisper.cpp)", "ggml-small.en.bin", 487614201, english),
      whisperCpp("whispercpp-medium", "Whisper Medium (whisper.cpp)", "ggml-medium.bin", 1533763059, multilingual),
      whisperCpp("whispercpp-medium-en", "Whisper Medium English (whisper.cpp)", "ggml-medium.en.bin", 1533774781,
                 english),
      whisperCpp("whispercpp-large-v3", "Whisper Large v3 (whisper.cpp)", "ggml-large-v3.bin", 3095033483,
                 multilingual),
      whisperCpp("whispercpp-large-v3-turbo", "Whisper Large v3 Turbo (whisper.cpp)", "ggml-large-v3-turbo.bin",
                 1624555275, multilingual),
      whisperCpp("whispercpp-large-v3-turbo-q5_0", "Whisper Large v3 Turbo Q5 (whisper.cpp)",
                 "ggml-large-v3-turbo-q5_0.bin", 574041195, multilingual),
      whisperCpp("whispercpp-large-v3-turbo-q8_0", "Whisper Large v3 Turbo Q8 (whisper.cpp)",
                 "ggml-large-v3-turbo-q8_0.bin", 874188075, multilingual),

      whisperKit("whisperkit-base", "Whisper Base (WhisperKit)", "openai_whisper-base", 146),
      whisperKit("whisperkit-small", "Whisper Small (WhisperKit)", "openai_whisper-small", 487),
      whisperKit("whisperkit-large-v3-turbo", "Whisper Large v3 Turbo (WhisperKit)",
                 "openai_whisper-large-v3-v20240930_turbo_632MB", 632),

      mlx("mlx-sensevoice-small", "SenseVoice Small (MLX)", EngineType::mlxSenseVoice, "mlx-community/SenseVoiceSmall",
          936, {"auto", "zh-Hans", "zh-Hant", "en", "yue", "ja", "ko"}),
      mlx("mlx-parakeet-tdt-0.6b-v3", "Parakeet TDT 0.6B v3 (MLX)", EngineType::mlxParakeet,
          "mlx-community/parakeet-tdt-0.6b-v3", 2510, withAuto(parakeetV3Languages())),
      mlx("mlx-cohere-transcribe", "Cohere Transcribe 03-2026 (MLX, 4-bit)", EngineType::mlxCohere,
          "lyzgeorge/cohere-transcribe-03-2026-mlx-4bit", 1150,
          {"en", "fr", "de", "it", "es", "pt", "el", "nl", "pl", "zh-Hans", "zh-Hant", "ja", "ko", "vi", "ar"}),
      mlx("mlx-qwen3-asr-0.6b", "Qwen3-ASR 0.6B (MLX, 8-bit)", EngineType::mlxQwen3ASR,
          "mlx-community/Qwen3-ASR-0.6B-8bit", 1010, withAuto(qwen3ASRLanguages())),
      mlx("mlx-qwen3-asr-1.7b", "Qwen3-ASR 1.7B (MLX, 8-bit)", EngineType::mlxQwen3ASR,
          "mlx-community/Qwen3-ASR-1.7B-8bit", 2460, withAuto(qwen3ASRLanguages())),
      mlx("voxtral-realtime-mini-4b-6bit", "Voxtral Mini 4B Realtime (VoxtralKit, 6-bit)", EngineType::mlxVoxtral,
          "mlx-community/Voxtral-Mini-4B-Realtime-2602-6bit", 3620, withAuto(voxtralLanguages())),
      mlx("voxtral-realtime-mini-4b-fp16", "Voxtral Mini 4B Realtime (MLX, fp16)", EngineType::mlxVoxtral,
          "mlx-community/Voxtral-Mini-4B-Realtime-2602-fp16", 8890, withAuto(voxtralLanguages())),
      mlx("mlx-glm-asr-nano", "GLM-ASR Nano 2512 (MLX, 8-bit)", EngineType::mlxGLMASR,
          "mlx-community/GLM-ASR-Nano-2512-8bit", 2500, {"auto", "zh-Hans", "zh-Hant", "en", "yue"}),
      mlx("mlx-granite-speech-4.1-2b", "Granite Speech 4.1 2B NAR (MLX)", EngineType::mlxGraniteSpeech,
          "mlx-community/granite-speech-4.1-2b-nar-mlx", 1600, {"auto", "en", "fr", "de", "es", "pt", "ja"}),
      mlx("mlx-fireredasr2-aed", "FireRedASR2 AED (MLX)", EngineType::mlxFireRedASR,
          "mlx-community/FireRedASR2-AED-mlx", 4570, {"auto", "zh-Hans", "zh-Hant", "en"}),

      speechModule("speech-qwen3-asr-0.6b", "Qwen3-ASR 0.6B (speech module)", EngineType::speechSwiftQwen3,
                   "quillmoss/Qwen3-ASR-0.6B-MLX-4bit", 700, withAuto(qwen3ASRLanguages())),
      speechModule("speech-whisper-large-v3-turbo", "Whisper Large v3 Turbo (speech module)",
                   EngineType::speechSwiftWhisper, "quillmoss/Whisper-Large-v3-Turbo-CoreML", 1600, multilingual),
      speechModule("speech-parakeet-tdt-v3", "Parakeet TDT v3 (speech module)", EngineType::speechSwiftParakeet,
                   "quillmoss/Parakeet-TDT-v3-CoreML-INT8-30s", 650, withAuto(parakeetV3Languages())),
      speechModule("speech-parakeet-streaming", "Parakeet EOU 120M streaming (speech module)",
                   EngineType::speechSwiftParakeetStreaming, "quillmoss/Parakeet-EOU-120M-CoreML-INT8", 130, english),
      speechModule("speech-nemotron-streaming", "Nemotron 3.5 ASR streaming 0.6B (speech module)",
                   EngineType::speechSwiftNemotron, "quillmoss/Nemotron-3.5-ASR-Streaming-0.6B-CoreML-INT8", 650,
                   english),
      speechModule("speech-omnilingual-300m", "Omnilingual ASR CTC 300M (speech module)",
                   EngineType::speechSwiftOmnilingualCoreML, "quillmoss/Omnilingual-ASR-CTC-300M-CoreML-INT8-10s", 330,
                   {"auto"}),
      speechModule("speech-omnilingual-1b", "Omnilingual ASR CTC 1B (speech module)",
                   EngineType::speechSwiftOmnilingualMLX, "quillmoss/Omnilingual-ASR-CTC-1B-MLX-8bit", 1050, {"auto"}),
  };

  LocalTranscriptionModelDescriptor appleSpeech;
  appleSpeech.id = "apple-speech";
  appleSpeech.name = "Apple Speech";
  appleSpeech.fileName = "apple-speech";
  appleSpeech.approximateSizeMB = 0;
  appleSpeech.engineType = EngineType::appleSpeech;
  appleSpeech.languageCodes = {"auto", "en", "zh-Hans", "zh-Hant", "yue", "de", "fr", "es", "it", "pt", "ja", "ko",
                               "ru",   "nl", "sv",      "da",      "no",  "fi", "pl", "tr", "ar", "he", "hi", "th",
                               "vi",   "id", "ms",      "uk",      "cs",  "el", "hu", "ro", "sk", "hr", "ca"};
  appleSpeech.artifactFormat = Format::systemSpeech;
  models.push_back(std::move(appleSpeech));

  // Debian's pocketsphinx-en-us package: acoustic model, language model and dictionary.
  LocalTranscriptionModelDescriptor pocketSphinx;
  pocketSphinx.id = "pocketsphinx-en-us";
  pocketSphinx.name = "PocketSphinx US English";
  pocketSphinx.fileName = "/usr/share/pocketsphinx/model/en-us";
  pocketSphinx.approximateSizeMB = 38;
  pocketSphinx.isDirectory = true;
  pocketSphinx.engineType = EngineType::pocketSphinx;
  pocketSphinx.languageCodes = {"en"};
  pocketSphinx.artifactFormat = Format::systemPackage;
  models.push_back(std::move(pocketSphinx));
  return models;
}

}  // namespace

const std::vector<LocalTranscriptionModelDescriptor>& OrvidDefaults::localTranscriptionModels() {
  static const std::vector<LocalTranscriptionModelDescriptor> models = localModels();
  return models;
}

const std::vector<TranscriptionProviderDescriptor>& OrvidDefaults::transcriptionProviders() {
  static const std::vector<TranscriptionProviderDescriptor> providers = [] {
    auto all = cloudProviders();
    for (const auto& model : localTranscriptionModels()) {
      all.push_back(
          {"local." + model.id, model.name, model.languageCodes, TranscriptionProviderBackend::onDevice(model)});
    }
    return all;
  }();
  return providers;
}

}  // namespace orvid
