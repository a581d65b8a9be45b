// Transcribes a WAV file with a cloud service of the catalogue, then cleans the text.
// Usage: transcribe_and_clean FILE.wav PROVIDER [BASE_URL]
#include <fstream>
#include <iostream>
#include <iterator>

#include "orvid/orvid.h"

int main(int argc, char** argv) try {
  if (argc < 3) return std::cerr << "usage: transcribe_and_clean FILE.wav PROVIDER [BASE_URL]\n", 2;
  std::ifstream file(argv[1], std::ios::binary);
  orvid::Bytes wav((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());

  orvid::CloudTranscriptionChoice choice{.providerID = argv[2], .languageCodes = {"en"}};
  if (argc > 3) choice.baseURL = argv[3];
  orvid::CloudTranscriptionSetup service = orvid::makeCloudTranscription(choice);  // key: provider.<ID>.api-key

  orvid::TranscriptionRequest request;
  request.audioFrames = orvid::AudioWAVDecoder::decode(wav, 4096);
  request.languageRoute = service.languageRoute;
  orvid::TranscriptionResult result = service.provider->transcribe(request);

  orvid::TranscriptCleanupConfiguration cleanup{.removesFillers = true, .collapsesStutters = true};
  std::cout << orvid::TranscriptCleanupEngine().clean(result.text, cleanup) << "\n";
} catch (const std::exception& error) {
  std::cerr << orvid::SecretRedactor::redact(error.what()) << "\n";
  return 1;
}
