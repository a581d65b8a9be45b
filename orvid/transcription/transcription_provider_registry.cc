#include "orvid/transcription/transcription_provider_registry.h"

#include "orvid/core/corelib/orvid_defaults.h"

namespace orvid::TranscriptionProviderRegistry {

const std::vector<TranscriptionProviderDescriptor>& descriptors() { return OrvidDefaults::transcriptionProviders(); }

std::optional<TranscriptionProviderDescriptor> descriptor(std::string_view id) {
  for (const auto& candidate : descriptors()) {
    if (candidate.id == id) return candidate;
  }
  return std::nullopt;
}

std::vector<LocalTranscriptionModelDescriptor> localModelDescriptors() {
  std::vector<LocalTranscriptionModelDescriptor> models;
  for (const auto& candidate : descriptors()) {
    if (const auto* model = candidate.backend.localModel()) models.push_back(*model);
  }
  return models;
}

}  // namespace orvid::TranscriptionProviderRegistry
