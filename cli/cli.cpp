#include "cli/cli.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iostream>
#include <sstream>

#include "cli/commands.h"
#include "cli/common.h"
#include "engine/catalog/catalog_safety.h"
#include "engine/catalog/library_location.h"
#include "engine/catalog/photo_library.h"
#include "engine/media/safe_file.h"

namespace lumivale::cli {

Context::Context(std::optional<std::string> libraryArg, bool json, std::ostream& out,
                 std::ostream& err, bool stderrIsTerminal, bool stdinIsTerminal)
    : json(json),
      out(out),
      err(err),
      stderrIsTerminal(stderrIsTerminal),
      stdinIsTerminal(stdinIsTerminal),
      libraryArg(std::move(libraryArg)) {
  confirm = [this](const std::string& question) {
    if (!this->stdinIsTerminal) return false;
    this->err << question << " [y/N] " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer)) return false;
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
  };
}

Context::~Context() = default;

std::filesystem::path Context::libraryFolder() const { return resolveLibraryFolder(libraryArg); }

PhotoLibrary& Context::library(bool forWriting) {
  if (forWriting && !openedForWriting) {
    // A library read so far is opened afresh, with its check.
    lib.reset();
    lib = std::make_unique<PhotoLibrary>(libraryFolder(), LibraryOptions{.checkWhenDue = true});
    openedForWriting = true;
  }
  if (!lib) lib = std::make_unique<PhotoLibrary>(libraryFolder(), LibraryOptions{.checkWhenDue = false});
  if (forWriting) lib->requireWritable();
  return *lib;
}

std::optional<std::string> Context::readError() {
  if (!lib) return std::nullopt;
  auto error = lib->takeReadError();
  if (!error) return std::nullopt;
  return "the catalog could not be read completely: " + *error + " in " + quotedPath(lib->databasePath());
}

void Context::printJson(const nlohmann::json& document) const {
  out << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

std::optional<std::string> Arguments::value(const std::string& option) const {
  auto it = values.find(option);
  if (it == values.end() || it->second.empty()) return std::nullopt;
  return it->second.back();
}

std::vector<std::string> Arguments::all(const std::string& option) const {
  auto it = values.find(option);
  return it == values.end() ? std::vector<std::string>{} : it->second;
}

Arguments parseArguments(const std::vector<std::string>& args, const OptionSpec& spec) {
  Arguments parsed;
  bool onlyPositional = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (onlyPositional || a.size() < 2 || a[0] != '-' || (a[1] != '-' && a != "-o" && a != "-y")) {
      // A lone "-" or a negative number is a positional value.
      parsed.positional.push_back(a);
      continue;
    }
    if (a == "--") {
      onlyPositional = true;
      continue;
    }
    std::string name = a;
    std::optional<std::string> inlineValue;
    if (auto eq = a.find('='); eq != std::string::npos) {
      name = a.substr(0, eq);
      inlineValue = a.substr(eq + 1);
    }
    if (spec.flags.count(name)) {
      if (inlineValue) throw UsageError("option " + name + " takes no value");
      parsed.flags.insert(name);
    } else if (spec.valued.count(name)) {
      if (inlineValue) {
        parsed.values[name].push_back(*inlineValue);
      } else if (i + 1 < args.size()) {
        parsed.values[name].push_back(args[++i]);
      } else {
        throw UsageError("option " + name + " needs a value");
      }
    } else {
      throw UsageError("unknown option " + name);
    }
  }
  return parsed;
}

std::int64_t parseInteger(const std::string& text, const std::string& what) {
  std::int64_t value = 0;
  const char* begin = text.data();
  const char* end = begin + text.size();
  if (!text.empty() && *begin == '+') ++begin;
  auto [ptr, ec] = std::from_chars(begin, end, value);
  if (text.empty() || ec != std::errc() || ptr != end) {
    throw UsageError("'" + text + "' is not a valid " + what);
  }
  return value;
}

std::int64_t parseId(const std::string& text) {
  std::int64_t id = parseInteger(text, "photo id");
  if (id < 1) throw UsageError("'" + text + "' is not a valid photo id");
  return id;
}

std::vector<std::int64_t> parseIds(const std::string& text) {
  std::vector<std::int64_t> ids;
  std::set<std::int64_t> seen;
  auto add = [&](std::int64_t id) {
    if (seen.insert(id).second) ids.push_back(id);
  };
  std::stringstream pieces(text);
  std::string piece;
  bool any = false;
  while (std::getline(pieces, piece, ',')) {
    if (piece.empty()) continue;
    any = true;
    auto dash = piece.find('-', 1);
    if (dash == std::string::npos) {
      add(parseId(piece));
      continue;
    }
    std::int64_t first = parseId(piece.substr(0, dash));
    std::int64_t last = parseId(piece.substr(dash + 1));
    if (last < first) throw UsageError("the id range '" + piece + "' runs backwards");
    if (last - first > 10'000'000) throw UsageError("the id range '" + piece + "' is too large");
    for (std::int64_t id = first; id <= last; ++id) add(id);
  }
  if (!any) throw UsageError("'" + text + "' names no photo ids");
  return ids;
}

Progress::Progress(const Context& context, std::string label)
    : active(context.stderrIsTerminal), err(context.err), label(std::move(label)) {}

Progress::~Progress() { finish(); }

void Progress::update(std::int64_t done, std::int64_t total) {
  if (!active || total <= 0) return;
  const int width = 30;
  int filled = static_cast<int>(width * std::clamp<double>(double(done) / double(total), 0, 1));
  err << "\r" << label << " [" << std::string(filled, '#') << std::string(width - filled, ' ')
      << "] " << done << "/" << total << std::flush;
  drawn = true;
}

void Progress::finish() {
  if (drawn) {
    err << "\r\033[K" << std::flush;
    drawn = false;
  }
}

nlohmann::json jsonText(const std::string& text) {
  // Let the dumper replace invalid UTF-8; a json string holds bytes as given.
  return nlohmann::json(text);
}

const std::vector<Command>& commands() {
  static const std::vector<Command> table = [] {
    std::vector<Command> t;
    addLibraryCommands(t);
    addImportCommands(t);
    addOrganizeCommands(t);
    addEditCommands(t);
    addMaskCommands(t);
    addLutCommands(t);
    addRenderCommands(t);
    addBackupCommands(t);
    addPreviewCommands(t);
    addThumbnailCommands(t);
    addExportCommands(t);
    return t;
  }();
  return table;
}

namespace {

const char* const programUsage = "usage: lumivale-cli [--library DIR] [--json] COMMAND [ARGS...]";

void printProgramHelp(std::ostream& out) {
  out << programUsage << "\n\n"
      << "The KUVO Lumivale catalog and engine for scripts and batch work.\n\n"
      << "Options:\n"
      << "  --library DIR   use the library in DIR (also LUMIVALE_LIBRARY);\n"
      << "                  default: the Pictures folder + \"KUVO Lumivale Library\"\n"
      << "  --json          print one JSON document on stdout\n"
      << "  --help          show this help; COMMAND --help shows a command's help\n\n"
      << "Photo ids are written 7, 3,7,9 or 3-9. COMMAND --help shows a command's arguments.\n\n"
      << "Commands:\n";
  // The name column is as wide as the longest command name; the full usage
  // of each command is in its own help.
  std::size_t width = 0;
  for (const Command& c : commands()) width = std::max(width, c.name.size());
  for (const Command& c : commands()) {
    out << "  " << c.name << std::string(width - c.name.size() + 3, ' ') << c.summary << "\n";
  }
}

void printCommandHelp(const Command& c, std::ostream& out) {
  out << "usage: lumivale-cli [--library DIR] [--json] " << c.usage << "\n\n" << c.summary << "\n";
  if (!c.help.empty()) out << "\n" << c.help << (c.help.back() == '\n' ? "" : "\n");
}

const Command* findCommand(const std::string& name) {
  for (const Command& c : commands()) {
    if (c.name == name) return &c;
  }
  return nullptr;
}

}  // namespace

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        bool stderrIsTerminal, bool stdinIsTerminal) {
  std::optional<std::string> libraryArg;
  bool json = false;
  bool help = false;
  std::vector<std::string> rest;
  std::string commandName;
  const Command* command = nullptr;
  try {
    // Global options may stand before or after the command; "--" ends them.
    bool passThrough = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
      const std::string& a = args[i];
      if (passThrough) {
        rest.push_back(a);
      } else if (a == "--") {
        passThrough = true;
        rest.push_back(a);
      } else if (a == "--json") {
        json = true;
      } else if (a == "--library") {
        if (i + 1 >= args.size()) throw UsageError("option --library needs a folder");
        libraryArg = args[++i];
      } else if (a.rfind("--library=", 0) == 0) {
        libraryArg = a.substr(10);
      } else if (a == "--help" || a == "-h") {
        help = true;
      } else if (commandName.empty() && a == "help") {
        help = true;
        commandName = "help";
      } else if (commandName.empty() || commandName == "help") {
        if (!a.empty() && a[0] == '-') throw UsageError("unknown option " + a);
        if (commandName == "help") help = true;
        commandName = a;
      } else {
        rest.push_back(a);
      }
    }
    if (commandName == "help") commandName.clear();
    if (libraryArg && libraryArg->empty()) throw UsageError("option --library needs a folder");
    if (commandName.empty()) {
      if (help) {
        printProgramHelp(out);
        return 0;
      }
      throw UsageError("no command given");
    }
    command = findCommand(commandName);
    if (!command) throw UsageError("unknown command '" + commandName + "'");
    if (help) {
      printCommandHelp(*command, out);
      return 0;
    }
    Arguments parsed = parseArguments(rest, command->options);
    // Output is held back until the command's reads are known to be
    // complete: partial results are never printed as if they were all.
    std::ostringstream held;
    Context context(libraryArg, json, held, err, stderrIsTerminal, stdinIsTerminal);
    context.stdoutIsTerminal = &out == &std::cout && isatty(STDOUT_FILENO) != 0;
    int status = 0;
    try {
      status = command->run(context, parsed);
    } catch (const UsageError&) {
      throw;
    } catch (const std::exception&) {
      // A conclusion drawn from a failed read ("no photo with id 7") is not
      // the error to report.
      if (auto readError = context.readError()) throw CommandError(*readError);
      out << held.str();
      throw;
    }
    if (auto readError = context.readError()) throw CommandError(*readError);
    out << held.str();
    return status;
  } catch (const UsageError& e) {
    // One line, like every error; the help is one command away.
    err << "error: " << printable(e.what()) << " (see 'lumivale-cli "
        << (command ? command->name + " --help" : std::string("--help")) << "')\n";
    return 2;
  } catch (const std::exception& e) {
    // Messages quote names and paths; whatever they hold stays on one line.
    std::string message = e.what();
    if (auto* damaged = dynamic_cast<const CatalogDamaged*>(&e); damaged && damaged->lastGoodBackup()) {
      message += " Restore it with: lumivale-cli backup restore " + damaged->lastGoodBackup()->name;
    }
    std::replace(message.begin(), message.end(), '\n', ' ');
    err << "error: " << printable(message) << "\n";
    return 1;
  }
}

}  // namespace lumivale::cli
