// orvid clean: the dictation cleanup of one text, with the user's settings for
// autocorrect, number normalisation and Chinese script conversion.
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "orvid/textprocessing/transcript_cleanup_engine.h"
#include "tools/orvid/cli_support.h"
#include "tools/orvid/commands.h"

namespace orvid::cli {
namespace {

struct CleanOptions {
  std::optional<std::string> text;
  std::optional<std::string> file;
  std::vector<std::string> dictionary;
  std::optional<std::string> context;
  double threshold = 0.85;
  bool fillers = false;
  bool stutters = false;
  std::optional<std::string> language;
};

bool isUTF8(std::string_view text) {
  size_t i = 0;
  while (i < text.size()) {
    const auto lead = static_cast<unsigned char>(text[i]);
    size_t length = 0;
    char32_t value = 0;
    if (lead < 0x80) {
      ++i;
      continue;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      value = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      value = lead & 0x07;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      value = (value << 6) | (next & 0x3F);
    }
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    if (overlong || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

// The text to clean: the argument, a file, or standard input for "--file -".
std::string inputText(const CleanOptions& options) {
  if (options.text) return *options.text;
  std::string text;
  if (*options.file == "-") {
    text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  } else {
    Bytes bytes = readFile(*options.file);
    text.assign(bytes.begin(), bytes.end());
  }
  if (!isUTF8(text)) {
    throw CommandError{(*options.file == "-" ? std::string("standard input") : *options.file) + ": not UTF-8 text"};
  }
  return text;
}

void runClean(const CleanOptions& options) {
  if (options.text.has_value() == options.file.has_value()) {
    throw CommandError{"give the text to clean either as an argument or with --file (not both)"};
  }
  TranscriptCleanupConfiguration configuration;
  configuration.dictionaryTerms = options.dictionary;
  configuration.dictionaryContext = options.context;
  configuration.wordCorrectionThreshold = options.threshold;
  configuration.removesFillers = options.fillers;
  configuration.collapsesStutters = options.stutters;
  const std::string text = inputText(options);
  // The user's settings (autocorrect, number normalisation, script conversion)
  // come from the standard settings file.
  TranscriptCleanupEngine engine;
  std::cout << engine.clean(text, configuration, options.language) << "\n";
}

}  // namespace

void addCleanCommands(CLI::App& app) {
  auto options = std::make_shared<CleanOptions>();
  auto* clean = app.add_subcommand(
      "clean", "Clean a dictated text: invisible characters, stutters, fillers, dictionary terms, white space, then "
               "the autocorrect, number and Chinese script settings");
  clean->add_option("text", options->text, "The text to clean");
  clean->add_option("--file", options->file, "Read the text from this file (- for standard input)");
  clean->add_option("--dictionary", options->dictionary,
                    "Dictionary terms forced into the text, comma-separated (may be repeated)")
      ->delimiter(',')
      ->allow_extra_args(false);
  clean->add_option("--context", options->context,
                    "Text whose quoted terms and identifiers (AWS, GitHub) join the dictionary");
  clean->add_option("--threshold", options->threshold, "Similarity (0 to 1) a span of words needs to become a term")
      ->check(CLI::Range(0.0, 1.0))
      ->capture_default_str();
  clean->add_flag("--fillers", options->fillers, "Remove filler words (um, uh, erm, ah, like)");
  clean->add_flag("--stutters", options->stutters, "Collapse repeated words (I I I want -> I want)");
  clean->add_option("--language", options->language, "Language code for number normalisation (en, zh, ...; auto)");
  clean->callback([options] {
    try {
      runClean(*options);
    } catch (const CommandError& error) {
      throw CommandError{redactedLine(error.message)};
    } catch (const std::exception& error) {
      throw CommandError{redactedLine(error.what())};
    }
  });
}

}  // namespace orvid::cli
