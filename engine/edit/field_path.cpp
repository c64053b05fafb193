// Field-path edits walk the records' field tables: each key picks a field of
// a record or an element of a list, and the value is read with the codec of
// what the path ends at, so an edit touches one field and never the stored
// form of the whole record.

#include "engine/edit/field_path.h"

#include <algorithm>

#include "engine/edit/record_fields.h"
#include "engine/util/text.h"

namespace lumivale {

namespace codec {

namespace {

// Reads one value whole, refusing numbers beyond the range of a double as
// well as syntax errors: such a number has no value to store.
void checkValue(JsonReader& r) {
  std::string key;
  switch (r.peek()) {
    case JsonReader::Kind::object:
      r.beginObject();
      while (r.nextKey(key)) checkValue(r);
      break;
    case JsonReader::Kind::array:
      r.beginArray();
      while (r.nextElement()) checkValue(r);
      break;
    case JsonReader::Kind::number:
      if (!jsonDouble(r.readNumber())) throw JsonSyntaxError();
      break;
    default:
      r.skipValue();
  }
}

bool isJsonValue(std::string_view text) {
  try {
    JsonReader r(text);
    checkValue(r);
    r.finish();
    return true;
  } catch (const JsonSyntaxError&) {
    return false;
  }
}

bool isIndex(std::string_view key) {
  return !key.empty() && key.size() < 10 &&
         std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::string jsonString(std::string_view text) {
  JsonWriter w;
  w.value(text);
  return w.take();
}

bool isJsonString(std::string_view text) {
  try {
    JsonReader r(text);
    if (r.peek() != JsonReader::Kind::string) return false;
    r.skipValue();
    r.finish();
    return true;
  } catch (const JsonSyntaxError&) {
    return false;
  }
}

PathWalk::PathWalk(const FieldEdit& edit) : edit(edit) {
  std::string_view rest = edit.path;
  while (true) {
    const std::size_t dot = rest.find('.');
    keys.push_back(rest.substr(0, dot));
    if (keys.back().empty()) throw FieldPathError("'" + edit.path + "' is not a field name");
    if (dot == std::string_view::npos) break;
    rest.remove_prefix(dot + 1);
  }
}

std::string_view PathWalk::walked(std::size_t count) const {
  if (count == 0) return {};
  const std::string_view last = keys[count - 1];
  return std::string_view(edit.path).substr(
      0, static_cast<std::size_t>(last.data() + last.size() - edit.path.data()));
}

std::size_t PathWalk::nextIndex(std::size_t count) {
  const std::string_view key = nextKey();
  const bool digits = isIndex(key);
  std::size_t index = 0;
  if (digits) {
    for (char c : key) index = index * 10 + static_cast<std::size_t>(c - '0');
    if (index < count) return index;
  }
  throw FieldPathError(
      "'" + std::string(walked(taken)) +
      "': " + (digits ? "index " + std::string(key) + " is out of range" : std::string("not an index")) +
      " ('" + std::string(walked(taken - 1)) + "' has " + std::to_string(count) + " items)");
}

void PathWalk::unknownField() const {
  throw FieldPathError("unknown field '" + std::string(walked(taken)) + "'");
}

void PathWalk::noFieldsHere() const {
  throw FieldPathError("'" + std::string(walked(taken)) + "' has no field '" + std::string(keys[taken]) +
                       "'");
}

void PathWalk::refuse(bool text) const {
  const std::string& value = edit.value;
  if (!isUtf8(value) || (text && !isJsonString(value))) {
    throw FieldPathError(jsonString(value) + " is not a valid value for " + edit.path);
  }
  if (!isJsonValue(value)) throw FieldPathError("'" + value + "' is not a value for " + edit.path);
  throw FieldPathError(trimmed(value) + " is not a valid value for " + edit.path);
}

}  // namespace codec

FieldEdit parseFieldEdit(const std::string& assignment) {
  const std::size_t eq = assignment.find('=');
  if (eq == std::string::npos) throw FieldPathError("'" + assignment + "' is not FIELD=VALUE");
  return {assignment.substr(0, eq), assignment.substr(eq + 1)};
}

EditSettings applyFieldEdits(const EditSettings& settings, const std::vector<FieldEdit>& edits) {
  EditSettings result = settings;
  for (const FieldEdit& edit : edits) {
    codec::PathWalk walk(edit);
    codec::editValue(result, walk);
  }
  return result;
}

}  // namespace lumivale
