#include "orvid/transcription/local/models/mlx_model_download_support.h"

#include <algorithm>
#include <system_error>

#include "orvid/platform/internal/text.h"

namespace orvid {

double ModelDownloadProgress::fractionCompleted() const {
  if (totalUnitCount <= 0) return 0;
  return std::clamp(double(completedUnitCount) / double(totalUnitCount), 0.0, 1.0);
}

namespace MLXModelDownloadSupport {
namespace {

std::string_view lastComponent(std::string_view path) {
  auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string lowercasedExtension(std::string_view name) {
  auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return "";
  return internal::lowercaseASCII(name.substr(dot + 1));
}

bool isRepositoryNamePart(std::string_view part) {
  if (part.empty() || part == "." || part == "..") return false;
  return std::all_of(part.begin(), part.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.';
  });
}

}  // namespace

std::vector<std::string> extraFilePatterns(LocalTranscriptionEngineType type) {
  switch (type) {
    case LocalTranscriptionEngineType::mlxSenseVoice: return {"*.mvn", "*.model", "tokenizer*"};
    case LocalTranscriptionEngineType::mlxCohere: return {"*.model"};
    default: return {};
  }
}

bool matchesGlob(std::string_view name, std::string_view pattern) {
  // Iterative wildcard match: remember the last "*" and retry from one character further.
  std::size_t n = 0, p = 0, starPattern = std::string_view::npos, starName = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      starPattern = p++;
      starName = n;
    } else if (p < pattern.size() && pattern[p] == name[n]) {
      ++p;
      ++n;
    } else if (starPattern != std::string_view::npos) {
      p = starPattern + 1;
      n = ++starName;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

bool isCheckpointFile(std::string_view path, LocalTranscriptionEngineType type) {
  auto name = lastComponent(path);
  if (name.empty() || name.front() == '.') return false;
  for (const auto& pattern : extraFilePatterns(type)) {
    if (matchesGlob(name, pattern)) return true;
  }
  auto extension = lowercasedExtension(name);
  return extension == "safetensors" || extension == "json" || extension == "txt" || extension == "wav";
}

bool isContainedRelativePath(std::string_view path) {
  if (path.empty() || path.front() == '/') return false;
  for (const auto& component : std::filesystem::path(path)) {
    if (component == ".." || component == ".") return false;
  }
  return true;
}

bool isModelInstalled(const LocalTranscriptionModelDescriptor& descriptor, const std::filesystem::path& folder) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (!fs::is_directory(folder, error) || !fs::exists(folder / "config.json", error)) return false;
  bool hasWeights = false, hasModelFile = false;
  fs::directory_iterator entries(folder, error);
  if (error) return false;
  for (const auto& entry : entries) {
    auto extension = entry.path().extension().string();
    if (extension == ".safetensors" && !hasWeights) {
      std::error_code sizeError;
      auto size = entry.file_size(sizeError);
      hasWeights = !sizeError && size > 0;
    }
    if (extension == ".model") hasModelFile = true;
  }
  if (!hasWeights) return false;
  switch (descriptor.engineType) {
    case LocalTranscriptionEngineType::mlxSenseVoice: return fs::exists(folder / "am.mvn", error);
    case LocalTranscriptionEngineType::mlxCohere: return hasModelFile;
    default: return true;
  }
}

bool isValidRepositoryID(std::string_view repositoryID) {
  auto slash = repositoryID.find('/');
  if (slash == std::string_view::npos) return false;
  return isRepositoryNamePart(repositoryID.substr(0, slash)) && isRepositoryNamePart(repositoryID.substr(slash + 1));
}

std::int64_t expectedTotalBytes(const LocalTranscriptionModelDescriptor& descriptor) {
  if (descriptor.downloadSizeBytes) return *descriptor.downloadSizeBytes;
  return std::int64_t(descriptor.approximateSizeMB) * 1'000'000;
}

}  // namespace MLXModelDownloadSupport
}  // namespace orvid
