// Exporting photos as new files (`export`), and the export options kept in
// the per-user defaults (engine/export/export_options.h) that it starts
// from, shown, changed and reset (`export-options`).

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

#include "cli/commands.h"
#include "cli/common.h"
#include "cli/export_settings.h"
#include "engine/catalog/photo_library.h"
#include "engine/catalog/user_defaults.h"
#include "engine/export/export_pipeline.h"
#include "engine/media/image_encoder.h"
#include "engine/media/safe_file.h"

namespace lumivale::cli {
namespace {

namespace fs = std::filesystem;
using ordered_json = nlohmann::ordered_json;
using Cases = std::vector<std::pair<std::string_view, std::string_view>>;  // key, title

template <class E>
Cases casesOf() {
  Cases cases;
  for (E value : allCases<E>()) cases.emplace_back(key(value), title(value));
  return cases;
}

// The fields that hold a choice, with its keys and titles.
const std::map<std::string, Cases>& choices() {
  static const std::map<std::string, Cases> fields = {
      {"format", casesOf<ExportFormat>()},         {"sizeMode", casesOf<SizeMode>()},
      {"colorSpace", casesOf<ExportColorSpace>()}, {"sharpening", casesOf<OutputSharpening>()},
      {"sharpenLevel", casesOf<SharpenLevel>()},   {"watermarkPosition", casesOf<WatermarkPosition>()},
      {"metadata", casesOf<MetadataPolicy>()},     {"naming", casesOf<NamingMode>()},
  };
  return fields;
}

struct Range {
  double low, high;
  bool lowIncluded;
};

// The number fields and the values they take.
const std::map<std::string, Range>& ranges() {
  static const std::map<std::string, Range> fields = {
      {"quality", {0, 1, true}},
      {"sizeValue", {0, 1e9, true}},
      {"watermarkSize", {0, 100, false}},
      {"watermarkOpacity", {0, 1, true}},
  };
  return fields;
}

std::string keysOf(const Cases& cases) {
  std::vector<std::string> keys;
  for (const auto& [key, title] : cases) keys.emplace_back(key);
  return joined(keys, ", ");
}

// The options in their stored form, which names every field in order.
ordered_json storedForm(const ExportOptions& options) {
  const auto text = options.encode();
  if (!text) throw CommandError("the export options hold a number that is not finite");
  return ordered_json::parse(*text);
}

std::string fieldNames() {
  std::vector<std::string> names;
  const ordered_json stored = storedForm(ExportOptions());
  for (const auto& item : stored.items()) names.push_back(item.key());
  return joined(names, ", ");
}

double parseNumber(const std::string& field, const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const Range range = ranges().at(field);
  const bool inside = (range.lowIncluded ? value >= range.low : value > range.low) && value <= range.high;
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || !std::isfinite(value) ||
      !inside) {
    const std::string low = formatFixed(range.low, 0) + (range.lowIncluded ? "" : " (not included)");
    throw UsageError(field + " takes a number from " + low + " to " + formatFixed(range.high, 0) + ", not '" +
                     text + "'");
  }
  return value;
}

bool parseSwitch(const std::string& field, const std::string& text) {
  for (const char* yes : {"true", "yes", "on", "1"}) {
    if (text == yes) return true;
  }
  for (const char* no : {"false", "no", "off", "0"}) {
    if (text == no) return false;
  }
  throw UsageError(field + " takes true or false, not '" + text + "'");
}

ExportOptions storedOptions(const UserDefaults& store, Context& ctx) {
  const auto stored = store.data(ExportOptions::key);
  if (stored && !ExportOptions::decode(*stored)) {
    ctx.err << "note: the stored export options could not be read; the defaults apply\n";
  }
  return ExportOptions::load(store);
}

void print(Context& ctx, const ExportOptions& options) {
  const ordered_json stored = storedForm(options);
  if (ctx.json) {
    ctx.out << stored.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
    return;
  }
  std::size_t width = 0;
  for (const auto& item : stored.items()) width = std::max(width, item.key().size());
  for (const auto& item : stored.items()) {
    std::string shown;
    if (item.value().is_string()) {
      const std::string text = item.value().get<std::string>();
      shown = "\"" + printable(text) + "\"";
      if (const auto choice = choices().find(item.key()); choice != choices().end()) {
        shown = text;
        for (const auto& [key, title] : choice->second) {
          if (key == text) shown += "  (" + std::string(title) + ")";
        }
      }
    } else {
      shown = item.value().dump();
    }
    ctx.out << padded(item.key(), width + 2) << shown << "\n";
  }
}

void store(const UserDefaults& defaults, const ExportOptions& options) {
  try {
    if (!options.save(defaults)) throw CommandError("the export options could not be encoded");
  } catch (const MediaError& e) {
    throw CommandError(e.what());
  }
}

int exportOptionsCommand(Context& ctx, const Arguments& args) {
  const std::string action = args.positional.empty() ? "show" : args.positional[0];
  const UserDefaults defaults = UserDefaults::standard();
  if (action == "show") {
    requireCount(args, args.positional.empty() ? 0 : 1, "export-options show");
    print(ctx, storedOptions(defaults, ctx));
  } else if (action == "set") {
    if (args.positional.size() < 2) throw UsageError("export-options set needs FIELD=VALUE");
    ExportOptions options = storedOptions(defaults, ctx);
    for (std::size_t i = 1; i < args.positional.size(); ++i) applyExportSetting(options, args.positional[i]);
    store(defaults, options);
    print(ctx, options);
  } else if (action == "reset") {
    requireCount(args, 1, "export-options reset");
    try {
      defaults.remove(ExportOptions::key);
    } catch (const MediaError& e) {
      throw CommandError(e.what());
    }
    print(ctx, ExportOptions());
  } else {
    throw UsageError("export-options takes show, set or reset, not '" + action + "'");
  }
  return 0;
}

// The export options an `export` command line gives, as assignments in the
// stored form, in the order of the options' fields.
std::vector<std::string> givenSettings(const Arguments& args) {
  static const std::pair<const char*, const char*> valued[] = {
      {"--format", "format"},
      {"--quality", "quality"},
      {"--size-mode", "sizeMode"},
      {"--size", "sizeValue"},
      {"--color-space", "colorSpace"},
      {"--sharpen", "sharpening"},
      {"--sharpen-level", "sharpenLevel"},
      {"--watermark", "watermarkText"},
      {"--watermark-size", "watermarkSize"},
      {"--watermark-opacity", "watermarkOpacity"},
      {"--watermark-position", "watermarkPosition"},
      {"--metadata", "metadata"},
      {"--copyright", "copyright"},
      {"--naming", "naming"},
      {"--suffix", "suffix"},
      {"--custom-name", "customName"},
  };
  std::vector<std::string> settings;
  for (const auto& [option, field] : valued) {
    if (auto value = args.value(option)) settings.push_back(std::string(field) + "=" + *value);
  }
  if (args.has("--16bit")) settings.push_back("tiff16Bit=true");
  if (args.has("--enlarge")) settings.push_back("dontEnlarge=false");
  if (args.value("--watermark")) settings.push_back("watermarkOn=true");
  if (args.has("--watermark-dark")) settings.push_back("watermarkDark=true");
  return settings;
}

void printResults(Context& ctx, const std::vector<ExportJob>& jobs,
                  const std::vector<ExportResult>& results) {
  nlohmann::json written = nlohmann::json::array(), failed = nlohmann::json::array();
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    const ExportResult& result = results[i];
    if (result.written()) {
      written.push_back(jsonText(result.file.string()));
      if (!ctx.json) ctx.out << printable(result.file.string()) << "\n";
    } else if (result.error) {
      failed.push_back({{"id", jobs[i].record.id}, {"error", jsonText(result.error->description())}});
      if (!ctx.json) ctx.err << "error: " << printable(result.error->description()) << "\n";
    }
  }
  if (ctx.json) ctx.printJson({{"written", written}, {"failed", failed}});
}

int exportCommand(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "export IDS --to FOLDER [options]");
  const Ids ids = parseIds(args.positional[0]);
  const auto to = args.value("--to");
  if (!to || to->empty()) throw UsageError("export needs --to FOLDER");

  const UserDefaults defaults = UserDefaults::standard();
  ExportOptions options = storedOptions(defaults, ctx);
  for (const std::string& setting : givenSettings(args)) applyExportSetting(options, setting);
  if (args.has("--16bit") && options.format != ExportFormat::tiff)
    throw UsageError("--16bit needs --format tiff: JPEG, HEIC and PNG are written with 8 bits");
  if (args.value("--size") && options.sizeMode == SizeMode::original)
    throw UsageError("--size needs --size-mode (longEdge, shortEdge, width, height or percent)");

  std::error_code error;
  const fs::path folder = fs::absolute(*to, error);
  if (error || !fs::is_directory(folder, error))
    throw CommandError("cannot export into '" + printable(*to) + "': it is not a folder");
  PhotoLibrary& library = ctx.library();
  requirePhotos(library, ids, false);
  if (args.has("--save")) {
    options.folderPath = folder.string();
    store(defaults, options);
  }

  const std::vector<ExportJob> jobs = Exporter::exportJobs(library, ids);
  PhotoRenderer renderer;
  Progress progress(ctx, "Exporting");
  const auto results = Exporter::exportBatch(jobs, options, renderer, folder,
                                             [&](int done, int total) { progress.update(done, total); });
  progress.finish();
  printResults(ctx, jobs, results);
  const bool allWritten =
      std::all_of(results.begin(), results.end(), [](const ExportResult& r) { return r.written(); });
  return allWritten ? 0 : 1;
}

}  // namespace

void applyExportSetting(ExportOptions& options, const std::string& assignment) {
  const std::size_t equals = assignment.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw UsageError("'" + assignment + "' is not FIELD=VALUE");
  }
  const std::string field = assignment.substr(0, equals);
  const std::string text = assignment.substr(equals + 1);
  ordered_json stored = storedForm(options);
  if (!stored.contains(field)) {
    throw UsageError("there is no export option '" + field + "'; the options are " + fieldNames());
  }
  ordered_json& value = stored[field];
  if (value.is_number()) {
    value = parseNumber(field, text);
  } else if (value.is_boolean()) {
    value = parseSwitch(field, text);
  } else if (const auto choice = choices().find(field); choice != choices().end()) {
    const Cases& cases = choice->second;
    if (std::none_of(cases.begin(), cases.end(), [&](const auto& c) { return c.first == text; })) {
      throw UsageError(field + " takes one of " + keysOf(choice->second) + ", not '" + text + "'");
    }
    value = text;
  } else {
    value = text;
  }
  const auto changed =
      ExportOptions::decode(stored.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
  if (!changed) throw UsageError("'" + assignment + "' is not a value export options can hold");
  options = *changed;
}

void addExportCommands(std::vector<Command>& table) {
  table.push_back(
      {"export",
       "export IDS --to FOLDER [options] [--save]",
       "Write developed photos as new files",
       "Each photo is developed with its current settings and written into FOLDER as a new file;\n"
       "an existing file is never replaced (\"IMG_1 2.jpg\" is written beside \"IMG_1.jpg\").\n"
       "Options not given come from the stored export options (see export-options):\n"
       "  --format F              jpeg, heic, tiff or png\n"
       "  --quality Q             JPEG and HEIC quality, 0 to 1\n"
       "  --16bit                 TIFF with 16 bits per channel\n"
       "  --size-mode M --size N  original, longEdge, shortEdge, width, height (N pixels) or\n"
       "                          percent (N per cent)\n"
       "  --enlarge               let the size make the photo larger\n"
       "  --color-space S         sRGB, displayP3 or adobeRGB; its profile is embedded\n"
       "  --sharpen M             none, screen, matte or glossy\n"
       "  --sharpen-level L       low, standard or high\n"
       "  --watermark TEXT        draw TEXT on each photo\n"
       "  --watermark-size N      its size, per cent of the shorter side\n"
       "  --watermark-opacity Q   0 to 1\n"
       "  --watermark-position P  topLeft, top, topRight, left, center, right, bottomLeft,\n"
       "                          bottom or bottomRight\n"
       "  --watermark-dark        dark text instead of light\n"
       "  --metadata P            all, copyrightOnly or none\n"
       "  --copyright TEXT        the copyright written with the metadata\n"
       "  --naming N              original, originalSuffix (with --suffix S) or custom (with\n"
       "                          --custom-name NAME, numbered NAME-001, NAME-002, ...)\n"
       "  --save                  keep the options given (and FOLDER) as the stored ones\n"
       "Prints the files written, one per line (with --json: {\"written\": [...], \"failed\":\n"
       "[...]}). A photo that fails is reported on stderr and the others are still written;\n"
       "the exit status is then 1.",
       {{"--16bit", "--enlarge", "--watermark-dark", "--save"},
        {"--to", "--format", "--quality", "--size-mode", "--size", "--color-space", "--sharpen",
         "--sharpen-level", "--watermark", "--watermark-size", "--watermark-opacity", "--watermark-position",
         "--metadata", "--copyright", "--naming", "--suffix", "--custom-name"}},
       exportCommand});
  table.push_back({"export-options",
                   "export-options [show | set FIELD=VALUE... | reset]",
                   "Show or change the export options the app and the command line share",
                   "The export options are kept per user (in $XDG_CONFIG_HOME/KUVO/Lumivale.json, or the\n"
                   "folder LUMIVALE_CONFIG names) and shared with the app's export sheet.\n"
                   "\n"
                   "  show                 every option with its value (the default)\n"
                   "  set FIELD=VALUE...   change options, all or none: numbers (quality=0.8),\n"
                   "                       switches (tiff16Bit=true), choices by key (format=tiff,\n"
                   "                       watermarkPosition=bottomLeft) and texts (copyright=\"© Me\")\n"
                   "  reset                back to the defaults\n"
                   "\n"
                   "Fields: format (jpeg, heic, tiff, png), quality (0 to 1), tiff16Bit, sizeMode\n"
                   "(original, longEdge, shortEdge, width, height, percent), sizeValue (pixels or per\n"
                   "cent), dontEnlarge, colorSpace (sRGB, displayP3, adobeRGB), sharpening (none,\n"
                   "screen, matte, glossy), sharpenLevel (low, standard, high), watermarkOn,\n"
                   "watermarkText, watermarkSize (per cent of the shorter side), watermarkOpacity (0 to\n"
                   "1), watermarkPosition (topLeft ... bottomRight), watermarkDark, metadata (all,\n"
                   "copyrightOnly, none), copyright, naming (original, originalSuffix, custom), suffix,\n"
                   "customName, folderPath. With --json, prints the options in their stored form.",
                   {},
                   exportOptionsCommand});
}

}  // namespace lumivale::cli
