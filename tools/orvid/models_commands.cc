// orvid models [--root DIR] list [--json] | download ID [--source S] | delete ID | path
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "orvid/core/corelib/orvid_defaults.h"
#include "orvid/core/corelib/orvid_settings.h"
#include "orvid/platform/cancellation.h"
#include "orvid/platform/curl_orvid_http_client.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/platform/user_defaults.h"
#include "orvid/transcription/local/models/transcription_model_manager.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"
#include "tools/orvid/interrupts.h"

namespace orvid::cli {
namespace {

namespace fs = std::filesystem;

struct ModelsOptions {
  std::string root;
  bool json = false;
  std::string modelID;
  std::string source;
};

// $XDG_DATA_HOME/orvid/models, else ~/.local/share/orvid/models.
fs::path defaultRoot() {
  if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/') {
    return fs::path(data) / "orvid" / "models";
  }
  const char* home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') throw CommandError{"HOME is not set; name the models folder with --root"};
  return fs::path(home) / ".local" / "share" / "orvid" / "models";
}

fs::path rootOf(const ModelsOptions& options) {
  return options.root.empty() ? defaultRoot() : fs::absolute(options.root);
}

const LocalTranscriptionModelDescriptor& catalogueModel(const std::string& id) {
  const auto& models = OrvidDefaults::localTranscriptionModels();
  auto found = std::find_if(models.begin(), models.end(), [&](const auto& model) { return model.id == id; });
  if (found == models.end()) throw CommandError{"unknown model " + id + " (see orvid models list)"};
  return *found;
}

std::int64_t sizeOf(const LocalTranscriptionModelDescriptor& model) {
  return model.downloadSizeBytes.value_or(std::int64_t(model.approximateSizeMB) * 1'000'000);
}

// "77.7 MB", decimal units as download sizes are quoted.
std::string byteText(double bytes) {
  static constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB"};
  int unit = 0;
  while (bytes >= 999.95 && unit < 4) {
    bytes /= 1000;
    ++unit;
  }
  return formatNumber(bytes, unit == 0 ? 0 : 1) + " " + kUnits[unit];
}

std::string stateText(const LocalTranscriptionModelState& state) {
  if (state.isInstalled) return "installed";
  if (state.isExtracting) return "unpacking";
  if (state.downloadedBytes > 0) {
    return "partial " + (state.progress ? formatNumber(*state.progress * 100, 0) + "%" : byteText(double(state.downloadedBytes)));
  }
  return "not installed";
}

void list(const ModelsOptions& options, TranscriptionModelManager& manager) {
  auto snapshot = manager.snapshot();
  if (options.json) {
    nlohmann::json models = nlohmann::json::array();
    for (const auto& model : manager.descriptors()) {
      models.push_back({{"id", model.id},
                        {"name", model.name},
                        {"engineType", model.engineType},
                        {"sizeBytes", sizeOf(model)},
                        {"state", snapshot.states.at(model.id)}});
    }
    std::cout << nlohmann::json{{"rootDirectory", snapshot.rootDirectory.string()}, {"models", models}}.dump(2) << "\n";
    return;
  }
  std::size_t width = 2;
  for (const auto& model : manager.descriptors()) width = std::max(width, model.id.size());
  for (const auto& model : manager.descriptors()) {
    const auto& state = snapshot.states.at(model.id);
    std::string line = model.id + std::string(width + 2 - model.id.size(), ' ');
    std::string status = stateText(state);
    line += status + std::string(status.size() < 16 ? 16 - status.size() : 1, ' ');
    std::string size = byteText(double(sizeOf(model)));
    line += size + std::string(size.size() < 10 ? 10 - size.size() : 1, ' ');
    std::cout << line << state.path.value_or("(built in)") << "\n";
  }
}

// Download progress: one line rewritten in place on a terminal, a line per 10 % otherwise.
class ProgressPrinter {
 public:
  ProgressPrinter() : terminal_(::isatty(STDERR_FILENO) == 1) {}

  void show(const LocalTranscriptionModelState& state) {
    double bytes = double(state.downloadedBytes);
    std::string line;
    if (state.progress) {
      int percent = int(std::floor(*state.progress * 100));
      double total = *state.progress > 0 ? bytes / *state.progress : 0;
      if (terminal_) {
        int filled = percent / 5;
        line = "[" + std::string(std::size_t(filled), '#') + std::string(std::size_t(20 - filled), ' ') + "] ";
      } else if (percent / 10 == lastDecile_) {
        return;
      }
      lastDecile_ = percent / 10;
      line += std::to_string(percent) + "%  " + byteText(bytes) + " of " + byteText(total);
      if (state.bytesPerSecond && *state.bytesPerSecond > 0) {
        line += "  " + byteText(*state.bytesPerSecond) + "/s";
        auto left = std::int64_t(std::ceil((total - bytes) / *state.bytesPerSecond));
        line += "  " + std::to_string(left / 60) + ":" + (left % 60 < 10 ? "0" : "") + std::to_string(left % 60) +
                " left";
      }
    } else {
      if (!terminal_ && bytes < lastBytes_ + 10'000'000) return;
      lastBytes_ = bytes;
      line = byteText(bytes) + " downloaded";
    }
    if (terminal_) {
      std::cerr << "\r\033[K" << line << std::flush;
      pending_ = true;
    } else {
      std::cerr << line << "\n";
    }
  }

  void endLine() {
    if (pending_) std::cerr << "\n";
    pending_ = false;
  }

 private:
  bool terminal_;
  bool pending_ = false;
  int lastDecile_ = -1;
  double lastBytes_ = -1e18;
};

void download(const ModelsOptions& options) {
  const auto& model = catalogueModel(options.modelID);
  if (model.artifactFormat == LocalTranscriptionArtifactFormat::systemSpeech) {
    throw CommandError{model.id + " is part of the system: there is nothing to download"};
  }
  if (model.artifactFormat == LocalTranscriptionArtifactFormat::systemPackage) {
    if (fs::exists(model.fileName)) {
      std::cout << model.id << " is installed at " << model.fileName << "\n";
      return;
    }
    throw CommandError{model.id + " comes with the system's packages, not as a download: install it with "
                       "the system's package manager"};
  }
  // A source named on the command line applies to this run only, not to the settings.
  std::optional<TemporaryDirectory> scratch;
  std::optional<UserDefaults> chosen;
  TranscriptionModelManagerOptions managerOptions;
  if (!options.source.empty()) {
    scratch.emplace("orvid-models");
    chosen.emplace(scratch->path() / "settings.json");
    chosen->set(OrvidSettingsPersistence::Key::modelDownloadSource, options.source);
    managerOptions.defaults = &*chosen;
  }
  TranscriptionModelManager manager(rootOf(options), OrvidDefaults::localTranscriptionModels(),
                                    std::make_shared<CurlOrvidHTTPClient>(), nullptr, managerOptions);
  ProgressPrinter printer;
  InterruptScope scope;
  try {
    auto state = manager.downloadModel(model.id, [&](const auto& state) { printer.show(state); }, scope.token());
    printer.endLine();
    std::cout << model.id << " installed at " << state.path.value_or(manager.rootDirectory().string()) << "\n";
  } catch (const CancellationError&) {
    printer.endLine();
    auto partial = manager.snapshot().states.at(model.id).downloadedBytes;
    std::cerr << "orvid: download of " << model.id << " stopped; " << byteText(double(partial))
              << " kept, the next run resumes from there\n";
    throw;
  } catch (...) {
    printer.endLine();
    throw;
  }
}

}  // namespace

void addModelsCommands(CLI::App& app) {
  auto options = std::make_shared<ModelsOptions>();
  auto* models = app.add_subcommand("models", "On-device speech models: list, download, delete");
  models->require_subcommand(1);
  models->fallthrough();
  models->add_option("--root", options->root, "Models folder (default $XDG_DATA_HOME/orvid/models)");

  auto manager = [options] {
    return std::make_unique<TranscriptionModelManager>(rootOf(*options), OrvidDefaults::localTranscriptionModels(),
                                                       std::make_shared<CurlOrvidHTTPClient>());
  };

  auto* listCommand = models->add_subcommand("list", "Every catalogue model with its state, size and path");
  listCommand->add_flag("--json", options->json, "Print JSON");
  listCommand->callback([options, manager] { list(*options, *manager()); });

  auto* downloadCommand = models->add_subcommand("download", "Download and install a model, resuming a partial one");
  downloadCommand->add_option("id", options->modelID, "Model identifier (see orvid models list)")->required();
  downloadCommand->add_option("--source", options->source, "Where from (default: the settings' choice)")
      ->check(CLI::IsMember({"huggingFace", "huggingFaceMirror", "modelScope"}));
  downloadCommand->callback([options] { download(*options); });

  auto* deleteCommand = models->add_subcommand("delete", "Remove a model and its partial download");
  deleteCommand->add_option("id", options->modelID, "Model identifier")->required();
  deleteCommand->callback([options, manager] {
    if (catalogueModel(options->modelID).artifactFormat == LocalTranscriptionArtifactFormat::systemPackage) {
      throw CommandError{options->modelID + " belongs to the system's packages; remove it with apt"};
    }
    auto models = manager();
    bool present = false;
    auto root = models->rootDirectory();
    for (const char* suffix : {"", ".partial", ".extracting"}) {
      present = present || fs::exists(fs::symlink_status(root / (catalogueModel(options->modelID).fileName + suffix)));
    }
    models->deleteModel(options->modelID);
    std::cout << options->modelID << (present ? " deleted" : " was not installed") << "\n";
  });

  auto* pathCommand = models->add_subcommand("path", "Print the models folder");
  pathCommand->callback([options] { std::cout << rootOf(*options).string() << "\n"; });
}

}  // namespace orvid::cli
