#include "orvid/transcription/ai_provider_registry.h"

#include "orvid/core/corelib/orvid_defaults.h"

namespace orvid::AIProviderRegistry {

const std::vector<AIProviderDescriptor>& descriptors() { return OrvidDefaults::aiProviderDescriptors(); }

std::optional<AIProviderDescriptor> descriptor(std::string_view id) {
  for (const auto& candidate : descriptors()) {
    if (candidate.id == id) return candidate;
  }
  return std::nullopt;
}

}  // namespace orvid::AIProviderRegistry
