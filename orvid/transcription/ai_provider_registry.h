#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "orvid/core/corelib/ai_provider.h"

// The catalogue of language-model providers the host can offer.
namespace orvid::AIProviderRegistry {

// OrvidDefaults::aiProviderDescriptors(), in its order.
const std::vector<AIProviderDescriptor>& descriptors();
// The first entry whose identifier equals `id` exactly (case-sensitive).
std::optional<AIProviderDescriptor> descriptor(std::string_view id);

}  // namespace orvid::AIProviderRegistry
