#pragma once

#include <vector>

namespace orvid {

struct TranscriptionProviderDescriptor;
struct LocalTranscriptionModelDescriptor;
struct AIProviderDescriptor;
struct TranscriptionPrompt;

// The built-in catalogue the host starts from: the transcription providers it can
// configure, the on-device models it can download, the AI providers it knows and
// the prompts it ships with. Include the records' own headers to use the lists.
struct OrvidDefaults {
  static const std::vector<TranscriptionProviderDescriptor>& transcriptionProviders();
  static const std::vector<LocalTranscriptionModelDescriptor>& localTranscriptionModels();
  static const std::vector<AIProviderDescriptor>& aiProviderDescriptors();
  static const std::vector<TranscriptionPrompt>& builtInPrompts();
};

}  // namespace orvid
