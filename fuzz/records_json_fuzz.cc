// Feeds arbitrary JSON to the decoders of the records in orvid/core/corelib and
// orvid/core. The first byte picks the record type; the rest is the JSON. Decoding
// may fail only with the decoder's own error (nlohmann::json::exception). A decoded
// record encoded and decoded again is equal, also through the written text, and
// encoding it a second time gives the same JSON.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fuzz/fuzz_support.h"
#include "orvid/core/corelib/ai_provider.h"
#include "orvid/core/corelib/asr_language.h"
#include "orvid/core/corelib/asr_transport.h"
#include "orvid/core/corelib/automation_records.h"
#include "orvid/core/corelib/cua_driver_status.h"
#include "orvid/core/corelib/execution_state.h"
#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/core/corelib/transcription_prompt.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"
#include "orvid/core/corelib/transcription_provider_option_value.h"
#include "orvid/core/pcm_frame.h"
#include "orvid/core/transcription_records.h"

namespace {

using orvid::fuzz::require;

using nlohmann::json;

template <typename Record>
void roundTrip(const json& input) {
  std::optional<Record> record;
  try {
    record = input.get<Record>();
  } catch (const json::exception&) {
    return;
  }
  const json encoded = *record;
  std::optional<Record> again;
  try {
    again = encoded.get<Record>();
  } catch (const json::exception& error) {
    std::fprintf(stderr, "%s\n%s\n", encoded.dump().c_str(), error.what());
    require(false, "an encoded record decodes again");
  }
  require(again == record, "decoded -> encoded -> decoded is equal");
  require(json(*again) == encoded, "encoding is stable");
  require(json::parse(encoded.dump()).get<Record>() == *record, "the written text decodes to an equal record");
}

// One record type: its round trip and the JSON of a default value.
struct RecordType {
  void (*roundTrip)(const json&);
  json (*example)();
};

template <typename Record>
json example() {
  return Record{};
}

constexpr std::array<RecordType, 31> kRecords = {
    RecordType{roundTrip<orvid::AIProviderAPIStyle>, example<orvid::AIProviderAPIStyle>},
    RecordType{roundTrip<orvid::AIProviderHeader>, example<orvid::AIProviderHeader>},
    RecordType{roundTrip<orvid::AIProviderCustomHeader>, example<orvid::AIProviderCustomHeader>},
    RecordType{roundTrip<orvid::AIProviderDescriptor>, example<orvid::AIProviderDescriptor>},
    RecordType{roundTrip<orvid::AIModelReference>, example<orvid::AIModelReference>},
    RecordType{roundTrip<orvid::AIProviderValidationState>, example<orvid::AIProviderValidationState>},
    RecordType{roundTrip<orvid::AIProviderConfiguration>, example<orvid::AIProviderConfiguration>},
    RecordType{roundTrip<orvid::AIProviderDebugHTTPExchange>, example<orvid::AIProviderDebugHTTPExchange>},
    RecordType{roundTrip<orvid::AIProviderModelDiscoveryDebugResult>, example<orvid::AIProviderModelDiscoveryDebugResult>},
    RecordType{roundTrip<orvid::ASRLanguageSelection>, example<orvid::ASRLanguageSelection>},
    RecordType{roundTrip<orvid::ASRLanguageInputCapability>, example<orvid::ASRLanguageInputCapability>},
    RecordType{roundTrip<orvid::ASRTranscriptionTransport>, example<orvid::ASRTranscriptionTransport>},
    RecordType{roundTrip<orvid::AIAutomationConfiguration>, example<orvid::AIAutomationConfiguration>},
    RecordType{roundTrip<orvid::ScriptAutomationOptions>, example<orvid::ScriptAutomationOptions>},
    RecordType{roundTrip<orvid::AutomationProposal>, example<orvid::AutomationProposal>},
    RecordType{roundTrip<orvid::AutomationExecutionResult>, example<orvid::AutomationExecutionResult>},
    RecordType{roundTrip<orvid::AutomationDependencyStatus>, example<orvid::AutomationDependencyStatus>},
    RecordType{roundTrip<orvid::CUADriverStatus>, example<orvid::CUADriverStatus>},
    RecordType{roundTrip<orvid::OrvidExecutionState>, example<orvid::OrvidExecutionState>},
    RecordType{roundTrip<orvid::LocalTranscriptionModelDescriptor>, example<orvid::LocalTranscriptionModelDescriptor>},
    RecordType{roundTrip<orvid::LocalTranscriptionEngineState>, example<orvid::LocalTranscriptionEngineState>},
    RecordType{roundTrip<orvid::LocalTranscriptionModelState>, example<orvid::LocalTranscriptionModelState>},
    RecordType{roundTrip<orvid::OrvidSettings>, example<orvid::OrvidSettings>},
    RecordType{roundTrip<orvid::TranscriptionPrompt>, example<orvid::TranscriptionPrompt>},
    RecordType{roundTrip<orvid::PromptPostProcessResult>, example<orvid::PromptPostProcessResult>},
    RecordType{roundTrip<orvid::RewriteChoice>, example<orvid::RewriteChoice>},
    RecordType{roundTrip<orvid::TranscriptionProviderDescriptor>, example<orvid::TranscriptionProviderDescriptor>},
    RecordType{roundTrip<orvid::TranscriptionProviderOptionValue>, example<orvid::TranscriptionProviderOptionValue>},
    RecordType{roundTrip<orvid::PCMFrame>, example<orvid::PCMFrame>},
    RecordType{roundTrip<orvid::TranscriptionResult>, example<orvid::TranscriptionResult>},
    RecordType{roundTrip<orvid::TranscriptionPartialResult>, example<orvid::TranscriptionPartialResult>},
};

std::vector<std::uint8_t> input(std::size_t index, const json& value) {
  const std::string text = value.dump();
  std::vector<std::uint8_t> bytes = {static_cast<std::uint8_t>(index)};
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}

template <typename Record>
std::size_t indexOf() {
  for (std::size_t i = 0; i < kRecords.size(); ++i) {
    if (kRecords[i].roundTrip == roundTrip<Record>) return i;
  }
  std::abort();
}

orvid::fuzz::Seeds seeds() {
  orvid::fuzz::Seeds all;
  for (std::size_t i = 0; i < kRecords.size(); ++i) {
    all.emplace_back(std::string("default-") + std::to_string(i), input(i, kRecords[i].example()));
  }
  const auto& providers = orvid::OrvidDefaults::transcriptionProviders();
  for (std::size_t i = 0; i < providers.size() && i < 3; ++i) {
    all.emplace_back("transcription-provider-" + std::to_string(i),
                     input(indexOf<orvid::TranscriptionProviderDescriptor>(), providers[i]));
  }
  const auto& models = orvid::OrvidDefaults::localTranscriptionModels();
  if (!models.empty()) all.emplace_back("local-model", input(indexOf<orvid::LocalTranscriptionModelDescriptor>(), models[0]));
  const auto& ai = orvid::OrvidDefaults::aiProviderDescriptors();
  if (!ai.empty()) all.emplace_back("ai-provider", input(indexOf<orvid::AIProviderDescriptor>(), ai[0]));
  const auto& prompts = orvid::OrvidDefaults::builtInPrompts();
  if (!prompts.empty()) all.emplace_back("prompt", input(indexOf<orvid::TranscriptionPrompt>(), prompts[0]));
  orvid::PCMFrame frame{{1, 2, 3, 4}, 16000, 1, 2};
  all.emplace_back("frame", input(indexOf<orvid::PCMFrame>(), frame));
  orvid::TranscriptionResult result{"hello", 0.5, "en", "en-US", "route"};
  all.emplace_back("result", input(indexOf<orvid::TranscriptionResult>(), result));
  all.emplace_back("integers", input(indexOf<orvid::RewriteChoice>(),
                                     json::parse(R"({"text":"x","start":1e300,"end":-9223372036854775809})")));
  return all;
}

}  // namespace

ORVID_FUZZ_SEEDS(seeds)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto value = json::parse(data + 1, data + size, nullptr, false);
  if (value.is_discarded()) return 0;
  kRecords[data[0] % kRecords.size()].roundTrip(value);
  return 0;
}
