#include "orvid/transcription/local/engines/whisper_cpp_transcription_engine.h"

#include <array>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "orvid/ai/secret_redactor.h"
#include "orvid/audio/audio_wav_encoder.h"
#include "orvid/core/orvid_error.h"
#include "orvid/platform/internal/text.h"
#include "orvid/platform/uuid.h"
#include "orvid/transcription/local/engines/whisper_cpp_transcription_error.h"

namespace orvid {
namespace {

constexpr std::array<std::string_view, 5> kLogMarkers = {"whisper_init", "whisper_model_load", "whisper_print_timings",
                                                         "system_info:", "main:"};

// Removes the folder and everything in it when it goes; failures are ignored.
class ScratchFolder {
 public:
  explicit ScratchFolder(std::filesystem::path path) : path_(std::move(path)) {
    std::filesystem::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

std::filesystem::filesystem_error writeError(const std::filesystem::path& path) {
  return std::filesystem::filesystem_error("cannot write the audio file", path,
                                           std::make_error_code(std::errc::io_error));
}

// Writes through a sibling file and a rename, so the file is whole or absent.
void writeAtomically(const std::filesystem::path& path, const Bytes& bytes) {
  std::filesystem::path staging = path;
  staging += ".writing";
  {
    std::ofstream out(staging, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw writeError(staging);
  }
  std::filesystem::rename(staging, path);
}

std::optional<std::string> readText(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return internal::decodeUTF8(data);
}

std::optional<std::string> whisperLanguage(const std::optional<std::string>& providerLanguage) {
  if (!providerLanguage || providerLanguage->empty() || *providerLanguage == "auto") return std::nullopt;
  if (*providerLanguage == "zh-Hans" || *providerLanguage == "zh-Hant") return "zh";
  return providerLanguage;
}

bool translatesToEnglish(const TranscriptionProviderOptions& options) {
  auto option = options.find("translate_to_english");
  return option != options.end() && option->second.booleanValue() == true;
}

// The line without the match of ^\s*\[[^\]]+\]\s*, when there is one.
std::string_view withoutLeadingTimestamp(std::string_view line) {
  std::size_t position = 0;
  while (position < line.size() && internal::isASCIIWhitespace(line[position])) ++position;
  if (position >= line.size() || line[position] != '[') return line;
  const std::size_t close = line.find(']', position + 1);
  if (close == std::string_view::npos || close == position + 1) return line;
  position = close + 1;
  while (position < line.size() && internal::isASCIIWhitespace(line[position])) ++position;
  return line.substr(position);
}

bool isLogLine(std::string_view line) {
  const std::string lowered = internal::lowercaseASCII(line);
  for (std::string_view marker : kLogMarkers) {
    if (lowered.find(marker) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

WhisperCPPTranscriptionEngine::WhisperCPPTranscriptionEngine(std::string modelID, std::filesystem::path modelURL,
                                                             std::filesystem::path executableURL,
                                                             std::shared_ptr<OrvidProcessRunning> processRunner,
                                                             std::filesystem::path temporaryDirectory)
    : modelID_(std::move(modelID)),
      modelURL_(std::move(modelURL)),
      executableURL_(std::move(executableURL)),
      processRunner_(std::move(processRunner)),
      temporaryDirectory_(std::move(temporaryDirectory)) {}

TranscriptionResult WhisperCPPTranscriptionEngine::transcribe(const LocalTranscriptionRequest& request,
                                                              std::stop_token stop) {
  if (request.audioFrames.empty()) throw OrvidError::emptyAudio();
  const ScratchFolder scratch(temporaryDirectory_ / ("Brindle-Whisper-" + UUID::random().uuidString()));
  const std::filesystem::path input = scratch.path() / "input.wav";
  const std::filesystem::path outputBase = scratch.path() / "transcript";
  writeAtomically(input, AudioWAVEncoder::encodePCM16(request.audioFrames));

  const std::optional<std::string>& providerLanguage = request.languageRoute.providerLanguage;
  std::vector<std::string> arguments = {"-m",  modelURL_.string(),  "-f",  input.string(), "-otxt",
                                        "-of", outputBase.string(), "-nt", "-np"};
  if (auto language = whisperLanguage(providerLanguage)) {
    arguments.push_back("-l");
    arguments.push_back(*language);
  }
  if (translatesToEnglish(request.providerOptions)) arguments.push_back("-tr");

  const OrvidProcessResult run = processRunner_->run(executableURL_, arguments, stop);
  if (run.terminationStatus != 0) {
    const std::string& diagnostics = run.stderr.empty() ? run.stdout : run.stderr;
    throw WhisperCPPTranscriptionError::processFailed(run.terminationStatus, SecretRedactor::redact(diagnostics));
  }

  std::filesystem::path transcriptFile = outputBase;
  transcriptFile += ".txt";
  const std::string text = cleanedTranscript(readText(transcriptFile).value_or(run.stdout));
  if (text.empty()) throw WhisperCPPTranscriptionError::missingTranscript();

  TranscriptionResult result;
  result.text = text;
  if (providerLanguage && !providerLanguage->empty() && *providerLanguage != "auto") result.language = providerLanguage;
  result.providerDiagnostics = "whisper.cpp";
  return result;
}

std::string WhisperCPPTranscriptionEngine::cleanedTranscript(std::string_view text) {
  std::string joined;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string_view line =
        internal::trimUnicodeWhitespace(withoutLeadingTimestamp(text.substr(start, end - start)));
    if (!line.empty() && !isLogLine(line)) {
      if (!joined.empty()) joined += ' ';
      joined += line;
    }
    start = end + 1;
  }

  std::string collapsed;
  bool inWhitespace = false;
  for (char c : joined) {
    if (internal::isASCIIWhitespace(c)) {
      inWhitespace = true;
      continue;
    }
    if (inWhitespace && !collapsed.empty()) collapsed += ' ';
    inWhitespace = false;
    collapsed += c;
  }
  return std::string(internal::trimUnicodeWhitespace(collapsed));
}

}  // namespace orvid
