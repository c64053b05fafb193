// Commands that read and change develop settings: the stored settings, field
// edits, history with undo and redo, snapshots, presets, the built-in looks
// and copying settings between photos.
//
// Every write checks its ids first: an id that is not in the catalog is an
// error (exit 1) and nothing is written. A field, group or value that cannot
// be understood is a usage error (exit 2), also with nothing written.

#include <algorithm>
#include <limits>
#include <sstream>

#include "cli/commands.h"
#include "cli/common.h"
#include "cli/record_output.h"
#include "engine/catalog/library_query.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/field_path.h"
#include "engine/edit/presets.h"

namespace lumivale::cli {
namespace {

using Json = nlohmann::json;

// ---- Shared helpers ----------------------------------------------------------

std::string quoted(const std::string& text) { return "\"" + printable(text) + "\""; }

std::int64_t photoAt(PhotoLibrary& library, const Arguments& args, std::size_t index) {
  std::int64_t id = parseId(args.positional.at(index));
  requirePhotos(library, {id});
  return id;
}

std::vector<std::string> groupKeys(const std::set<SettingsGroup>& groups) {
  std::vector<std::string> keys;
  for (SettingsGroup g : allSettingsGroups()) {
    if (groups.count(g)) keys.emplace_back(rawValue(g));
  }
  return keys;
}

// "all", or group keys separated by commas; the default is every group but
// the local ones (geometry and masks).
std::set<SettingsGroup> groupsFrom(const Arguments& args) {
  auto text = args.value("--groups");
  if (!text) return allButLocal();
  if (*text == "all") return {allSettingsGroups().begin(), allSettingsGroups().end()};
  std::set<SettingsGroup> groups;
  std::stringstream pieces(*text);
  std::string piece;
  while (std::getline(pieces, piece, ',')) {
    std::string key = trimmed(piece);
    if (key.empty()) continue;
    auto group = settingsGroupFromRawValue(key);
    if (!group) {
      throw UsageError("unknown group '" + key + "' (one of all, " +
                       joined(groupKeys({allSettingsGroups().begin(), allSettingsGroups().end()}), ", ") +
                       ")");
    }
    groups.insert(*group);
  }
  if (groups.empty()) throw UsageError("--groups names no group");
  return groups;
}

Json stepJson(const HistoryStep& step) {
  return {{"seq", step.seq}, {"name", jsonText(step.name)}, {"date", step.date}};
}

// ---- settings ------------------------------------------------------------------

int settings(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "settings ID");
  PhotoLibrary& library = ctx.library();
  std::int64_t id = photoAt(library, args, 0);
  std::string text = library.storedSettings(id).value_or(library.settings(id).encoded().value_or("{}"));
  if (ctx.json) {
    Json document = Json::parse(text, nullptr, false);
    if (document.is_discarded()) document = Json::parse(library.settings(id).encoded().value_or("{}"));
    ctx.printJson(document);
  } else {
    ctx.out << text << "\n";
  }
  return 0;
}

// ---- edit ------------------------------------------------------------------------

int edit(Context& ctx, const Arguments& args) {
  if (args.positional.size() < 2)
    throw UsageError("expected: edit ID FIELD=VALUE... [--step NAME | --no-step]");
  if (args.value("--step") && args.has("--no-step"))
    throw UsageError("--step and --no-step exclude each other");
  PhotoLibrary& library = ctx.writableLibrary();
  std::int64_t id = photoAt(library, args, 0);
  std::vector<std::string> assignments(args.positional.begin() + 1, args.positional.end());
  std::vector<FieldEdit> edits;
  std::vector<std::string> paths;
  for (const std::string& a : assignments) {
    try {
      edits.push_back(parseFieldEdit(a));
    } catch (const FieldPathError& e) {
      throw UsageError(e.what());
    }
    if (std::find(paths.begin(), paths.end(), edits.back().path) == paths.end()) paths.push_back(edits.back().path);
  }

  std::optional<std::string> step;
  if (!args.has("--no-step")) step = args.value("--step").value_or("Edit " + joined(paths, ", "));
  SettingsCommit commit;
  try {
    commit = library.updateSettings(id, step, [&](EditSettings& s) { s = applyFieldEdits(s, edits); });
  } catch (const FieldPathError& e) {
    throw UsageError(e.what());
  }
  const HistoryStep* saved = step && commit.changed && commit.step ? &*commit.step : nullptr;
  if (ctx.json) {
    ctx.printJson({{"id", id},
                   {"changed", commit.changed},
                   {"step", saved ? stepJson(*saved) : Json(nullptr)},
                   {"position", commit.position},
                   {"edited", commit.edited}});
  } else if (!commit.changed) {
    ctx.out << "Photo " << id << ": nothing changed\n";
  } else if (saved) {
    ctx.out << "Photo " << id << ": saved as step " << saved->seq << " " << quoted(saved->name) << "\n";
  } else {
    ctx.out << "Photo " << id << ": saved without a history step\n";
  }
  return 0;
}

// ---- history, undo, redo, goto -------------------------------------------------------

int history(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "history ID");
  PhotoLibrary& library = ctx.library();
  std::int64_t id = photoAt(library, args, 0);
  EditHistory h = library.history(id);
  if (ctx.json) {
    Json steps = Json::array();
    for (const HistoryStep& s : h.steps) {
      Json step = stepJson(s);
      step["current"] = s.seq == h.position;
      steps.push_back(step);
    }
    ctx.printJson({{"id", id}, {"position", h.position}, {"steps", steps}});
    return 0;
  }
  if (h.steps.empty()) {
    ctx.out << "Photo " << id << " has no history.\n";
    return 0;
  }
  std::size_t seqWidth = 1, nameWidth = 4;
  for (const HistoryStep& s : h.steps) {
    seqWidth = std::max(seqWidth, std::to_string(s.seq).size());
    nameWidth = std::max(nameWidth, columns(printable(s.name)));
  }
  nameWidth = std::min<std::size_t>(nameWidth, 40);
  for (const HistoryStep& s : h.steps) {
    std::string seq = std::to_string(s.seq);
    ctx.out << (s.seq == h.position ? "> " : "  ") << std::string(seqWidth - seq.size(), ' ') << seq << "  "
            << padded(printable(s.name), nameWidth) << "  " << localTimeText(s.date) << "\n";
  }
  return 0;
}

// Where the photo now stands in its history: the position and its step.
void reportPosition(Context& ctx, std::int64_t id, int position, const std::optional<HistoryStep>& step) {
  if (ctx.json) {
    ctx.printJson({{"id", id}, {"position", position}, {"step", step ? stepJson(*step) : Json(nullptr)}});
  } else {
    ctx.out << "Photo " << id << " is at step " << position;
    if (step) ctx.out << " " << quoted(step->name);
    ctx.out << "\n";
  }
}

int undo(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "undo ID");
  PhotoLibrary& library = ctx.writableLibrary();
  std::int64_t id = photoAt(library, args, 0);
  auto step = library.undo(id);
  if (!step) throw CommandError("nothing to undo for photo " + std::to_string(id));
  reportPosition(ctx, id, step->seq, step);
  return 0;
}

int redo(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "redo ID");
  PhotoLibrary& library = ctx.writableLibrary();
  std::int64_t id = photoAt(library, args, 0);
  auto step = library.redo(id);
  if (!step) throw CommandError("nothing to redo for photo " + std::to_string(id));
  reportPosition(ctx, id, step->seq, step);
  return 0;
}

int goTo(Context& ctx, const Arguments& args) {
  requireCount(args, 2, "goto ID SEQ");
  std::int64_t seq = parseInteger(args.positional[1], "history step");
  if (seq < 1 || seq > std::numeric_limits<int>::max()) {
    throw UsageError("'" + args.positional[1] + "' is not a valid history step");
  }
  PhotoLibrary& library = ctx.writableLibrary();
  std::int64_t id = photoAt(library, args, 0);
  if (!library.goToHistory(id, static_cast<int>(seq))) {
    throw CommandError("photo " + std::to_string(id) + " has no readable history step " +
                       std::to_string(seq));
  }
  const EditHistory h = library.history(id);
  std::optional<HistoryStep> step;
  for (const HistoryStep& s : h.steps) {
    if (s.seq == h.position) step = s;
  }
  reportPosition(ctx, id, h.position, step);
  return 0;
}

// ---- snapshot ------------------------------------------------------------------------

Json snapshotJson(const Snapshot& s) {
  return {{"id", s.id}, {"photo", s.photo}, {"name", jsonText(s.name)}, {"date", s.date}};
}

Snapshot requireSnapshot(PhotoLibrary& library, const std::string& text) {
  std::int64_t id = parseRowId(text, "snapshot id");
  auto snapshot = library.snapshot(id);
  if (!snapshot) throw CommandError("no snapshot with id " + std::to_string(id));
  return *snapshot;
}

int snapshot(Context& ctx, const Arguments& args) {
  const std::string usage = "snapshot list ID | add ID NAME | apply SNAPSHOT_ID | delete SNAPSHOT_ID";
  if (args.positional.size() < 2) throw UsageError("expected: " + usage);
  const std::string& action = args.positional[0];
  PhotoLibrary& library = ctx.library(action == "add" || action == "apply" || action == "delete");

  if (action == "list") {
    requireCount(args, 2, "snapshot list ID");
    std::int64_t id = photoAt(library, args, 1);
    auto list = library.snapshots(id);
    if (ctx.json) {
      Json items = Json::array();
      for (const Snapshot& s : list) items.push_back(snapshotJson(s));
      ctx.printJson(items);
    } else {
      if (list.empty()) ctx.out << "Photo " << id << " has no snapshots.\n";
      for (const Snapshot& s : list)
        ctx.out << s.id << "  " << localTimeText(s.date) << "  " << printable(s.name) << "\n";
    }
    return 0;
  }
  if (action == "add") {
    if (args.positional.size() < 3) throw UsageError("expected: snapshot add ID NAME");
    std::int64_t id = photoAt(library, args, 1);
    std::string name = requireName(textFrom(args, 2), "a snapshot");
    std::int64_t made = library.addSnapshot(id, name, library.settings(id));
    if (ctx.json) {
      ctx.printJson(snapshotJson(library.snapshot(made).value_or(Snapshot{made, id, name, {}, 0})));
    } else {
      ctx.out << "Added snapshot " << made << " " << quoted(name) << " of photo " << id << "\n";
    }
    return 0;
  }
  if (action == "apply") {
    requireCount(args, 2, "snapshot apply SNAPSHOT_ID");
    const std::int64_t id = requireSnapshot(library, args.positional[1]).id;
    auto commit = library.applySnapshot(id);
    if (!commit) throw CommandError("no snapshot with id " + std::to_string(id));
    reportPosition(ctx, commit->photo, commit->position, commit->step);
    return 0;
  }
  if (action == "delete") {
    requireCount(args, 2, "snapshot delete SNAPSHOT_ID");
    Snapshot s = requireSnapshot(library, args.positional[1]);
    library.deleteSnapshot(s.id);
    if (ctx.json) {
      ctx.printJson({{"deleted", snapshotJson(s)}});
    } else {
      ctx.out << "Deleted snapshot " << s.id << " " << quoted(s.name) << " of photo " << s.photo << "\n";
    }
    return 0;
  }
  throw UsageError("unknown snapshot action '" + action + "' (list, add, apply or delete)");
}

// ---- preset and looks --------------------------------------------------------------------

Json presetJson(const UserPreset& p) {
  return {{"id", p.id}, {"name", jsonText(p.name)}, {"groups", groupKeys(p.groups)}};
}

std::optional<UserPreset> userPresetById(PhotoLibrary& library, std::int64_t id) {
  for (UserPreset& p : library.userPresets()) {
    if (p.id == id) return std::move(p);
  }
  return std::nullopt;
}

int preset(Context& ctx, const Arguments& args) {
  const std::string usage =
      "preset list | save NAME FROM_ID [--groups g,g] | delete ID | apply NAME_OR_ID IDS";
  if (args.positional.empty()) throw UsageError("expected: " + usage);
  const std::string& action = args.positional[0];
  if (action != "save" && args.value("--groups")) throw UsageError("--groups belongs to preset save");
  PhotoLibrary& library = ctx.library(action == "save" || action == "delete" || action == "apply");

  if (action == "list") {
    requireCount(args, 1, "preset list");
    auto list = library.userPresets();
    if (ctx.json) {
      Json items = Json::array();
      for (const UserPreset& p : list) items.push_back(presetJson(p));
      ctx.printJson(items);
    } else {
      if (list.empty()) ctx.out << "No presets.\n";
      for (const UserPreset& p : list) {
        ctx.out << p.id << "  " << printable(p.name) << "  (" << joined(groupKeys(p.groups), ", ") << ")\n";
      }
    }
    return 0;
  }
  if (action == "save") {
    requireCount(args, 3, "preset save NAME FROM_ID [--groups g,g]");
    std::string name = requireName(args.positional[1], "a preset");
    std::set<SettingsGroup> groups = groupsFrom(args);
    std::int64_t from = photoAt(library, args, 2);
    std::int64_t id = library.savePreset(name, library.settings(from), groups);
    UserPreset saved = userPresetById(library, id).value_or(UserPreset{id, name, {}, groups});
    if (ctx.json) {
      ctx.printJson(presetJson(saved));
    } else {
      ctx.out << "Saved preset " << id << " " << quoted(name) << " from photo " << from << " ("
              << joined(groupKeys(groups), ", ") << ")\n";
    }
    return 0;
  }
  if (action == "delete") {
    requireCount(args, 2, "preset delete ID");
    std::int64_t id = parseRowId(args.positional[1], "preset id");
    auto gone = userPresetById(library, id);
    if (!gone) throw CommandError("no preset with id " + std::to_string(id));
    library.deletePreset(id);
    if (ctx.json) {
      ctx.printJson({{"deleted", presetJson(*gone)}});
    } else {
      ctx.out << "Deleted preset " << id << " " << quoted(gone->name) << "\n";
    }
    return 0;
  }
  if (action == "apply") {
    requireCount(args, 3, "preset apply NAME_OR_ID IDS");
    const std::string& which = args.positional[1];
    Ids ids = parseIds(args.positional[2]);
    // A user preset by id, then by exact name, then a built-in look by name.
    std::optional<UserPreset> user;
    std::int64_t asId = 0;
    if (!which.empty() &&
        std::all_of(which.begin(), which.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
        which.size() < 19) {
      asId = std::stoll(which);
      user = userPresetById(library, asId);
    }
    if (!user) {
      for (UserPreset& p : library.userPresets()) {
        if (p.name == which) user = std::move(p);
      }
    }
    const BuiltInPreset* look = nullptr;
    if (!user) {
      for (const BuiltInPreset& l : BuiltInPresets::all()) {
        if (l.name == which) look = &l;
      }
    }
    if (!user && !look) throw CommandError("no preset or look named '" + which + "'");
    requirePhotos(library, ids);
    if (user) {
      library.applyPreset(ids, *user);
    } else {
      library.applyPreset(ids, *look);
    }
    const std::string name = user ? user->name : look->name;
    if (ctx.json) {
      ctx.printJson({{"preset", jsonText(name)}, {"kind", user ? "user" : "look"}, {"ids", ids}});
    } else {
      ctx.out << "Applied " << (user ? "preset " : "look ") << quoted(name) << " to "
              << photoCount(ids.size()) << "\n";
    }
    return 0;
  }
  throw UsageError("unknown preset action '" + action + "' (list, save, delete or apply)");
}

int looks(Context& ctx, const Arguments& args) {
  if (!args.positional.empty()) throw UsageError("looks takes no arguments");
  const auto& all = BuiltInPresets::all();
  if (ctx.json) {
    Json items = Json::array();
    for (const BuiltInPreset& l : all) {
      items.push_back(
          {{"name", l.name}, {"category", l.category}, {"note", l.note}, {"groups", groupKeys(l.groups())}});
    }
    ctx.printJson(items);
    return 0;
  }
  std::size_t nameWidth = 0, categoryWidth = 0;
  for (const BuiltInPreset& l : all) {
    nameWidth = std::max(nameWidth, l.name.size());
    categoryWidth = std::max(categoryWidth, l.category.size());
  }
  for (const BuiltInPreset& l : all) {
    ctx.out << l.name << std::string(nameWidth - l.name.size() + 2, ' ') << l.category
            << std::string(categoryWidth - l.category.size() + 2, ' ') << l.note << "\n";
  }
  return 0;
}

// ---- copy-settings -------------------------------------------------------------------------

int copySettings(Context& ctx, const Arguments& args) {
  requireCount(args, 2, "copy-settings FROM_ID TO_IDS [--groups g,g]");
  std::int64_t from = parseId(args.positional[0]);
  Ids to = parseIds(args.positional[1]);
  std::set<SettingsGroup> groups = groupsFrom(args);
  to.erase(std::remove(to.begin(), to.end(), from), to.end());
  if (to.empty()) throw UsageError("no photo to copy to besides the source");
  PhotoLibrary& library = ctx.writableLibrary();
  Ids all{from};
  all.insert(all.end(), to.begin(), to.end());
  requirePhotos(library, all);
  library.copySettings(from, to, groups);
  if (ctx.json) {
    ctx.printJson({{"from", from}, {"to", to}, {"groups", groupKeys(groups)}});
  } else {
    ctx.out << "Copied " << joined(groupKeys(groups), ", ") << " from photo " << from << " to "
            << photoCount(to.size()) << "\n";
  }
  return 0;
}

}  // namespace

void addEditCommands(std::vector<Command>& table) {
  table.push_back({"settings",
                   "settings ID",
                   "Print a photo's develop settings",
                   "Prints the stored settings as they are stored (one JSON object), or the photo's\n"
                   "initial settings when none are stored or they cannot be read.",
                   {},
                   settings});
  table.push_back({"edit",
                   "edit ID FIELD=VALUE... [--step NAME | --no-step]",
                   "Change develop settings of a photo",
                   "FIELD is a settings key; nested fields take dots and indexes: exposure=0.5,\n"
                   "hsl.5.saturation=20, crop.w=0.5, masks.0.adjust.exposure=1. VALUE is JSON\n"
                   "(blackAndWhite=true, curveRGB='{\"points\":[{\"x\":0,\"y\":0},{\"x\":1,\"y\":0.9}]}');\n"
                   "text fields also take plain text (cropAspect=\"1 : 1\"). An unknown field, an index\n"
                   "out of range or a value of the wrong type changes nothing. An edit that leaves\n"
                   "the settings as they are records no step once the photo has a history.\n\n"
                   "  --step NAME   name the history step (default: \"Edit \" and the fields)\n"
                   "  --no-step     save without a history step",
                   {{"--no-step"}, {"--step"}},
                   edit});
  table.push_back(
      {"history", "history ID", "List a photo's history steps; > marks the current one", "", {}, history});
  table.push_back({"undo", "undo ID", "Go back one history step (not below step 1)", "", {}, undo});
  table.push_back({"redo", "redo ID", "Go forward one history step", "", {}, redo});
  table.push_back({"goto", "goto ID SEQ", "Go to a history step", "", {}, goTo});
  table.push_back({"snapshot",
                   "snapshot list ID|add ID NAME|apply SNAPSHOT_ID|delete SNAPSHOT_ID",
                   "List, take, apply and delete snapshots of a photo's settings",
                   "add keeps the photo's current settings under a name; apply makes them current\n"
                   "again as a history step \"Snapshot: NAME\" (none when they already are).",
                   {},
                   snapshot});
  table.push_back({"preset",
                   "preset list|save NAME FROM_ID [--groups g,g]|delete ID|apply NAME_OR_ID IDS",
                   "List, save, delete and apply presets",
                   "save keeps the chosen groups of a photo's settings (default: every group but\n"
                   "geometry and masks; --groups all takes all twelve). apply finds a preset by id\n"
                   "or exact name, else a built-in look by name; the photos' non-local settings go\n"
                   "back to their defaults, then the preset's groups are applied, as one history\n"
                   "step \"Preset: NAME\" per photo whose settings change.\n\n"
                   "Groups: whiteBalance, light, presence, toneCurve, colorMixer, colorGrading,\n"
                   "detail, lens, effects, treatment, geometry, masks.",
                   {{}, {"--groups"}},
                   preset});
  table.push_back({"looks", "looks", "List the built-in looks with their category and note", "", {}, looks});
  table.push_back({"copy-settings",
                   "copy-settings FROM_ID TO_IDS [--groups g,g]",
                   "Copy settings groups from one photo to others",
                   "Each target whose settings change gets one history step \"Paste Settings\".\n"
                   "Default groups: all but geometry and masks; --groups all takes all twelve.",
                   {{}, {"--groups"}},
                   copySettings});
}

}  // namespace lumivale::cli
