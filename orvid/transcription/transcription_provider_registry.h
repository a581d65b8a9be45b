#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "orvid/core/corelib/local_transcription_model.h"
#include "orvid/core/corelib/transcription_provider_descriptor.h"

// The catalogue of speech-to-text providers the host can offer.
namespace orvid::TranscriptionProviderRegistry {

// OrvidDefaults::transcriptionProviders(), in its order.
const std::vector<TranscriptionProviderDescriptor>& descriptors();
// The first entry whose identifier equals `id` exactly (case-sensitive).
std::optional<TranscriptionProviderDescriptor> descriptor(std::string_view id);
// The model of every on-device entry, in catalogue order; cloud entries are skipped.
std::vector<LocalTranscriptionModelDescriptor> localModelDescriptors();

}  // namespace orvid::TranscriptionProviderRegistry
