#include "engine/edit/field_path.h"

#include <algorithm>
#include <sstream>

#include <nlohmann/json.hpp>

namespace lumivale {
namespace {

using Json = nlohmann::json;

struct Assignment {
  std::string path;
  std::vector<std::string> keys;
};

std::vector<std::string> splitPath(const std::string& path) {
  std::vector<std::string> keys;
  std::stringstream pieces(path);
  std::string piece;
  while (std::getline(pieces, piece, '.')) keys.push_back(piece);
  if (path.empty() || path.back() == '.' ||
      std::any_of(keys.begin(), keys.end(), [](const std::string& k) { return k.empty(); })) {
    throw FieldPathError("'" + path + "' is not a field name");
  }
  return keys;
}

// The member `keys` leads to inside `document`, or nothing.
Json* find(Json& document, const std::vector<std::string>& keys, std::string* problem = nullptr) {
  Json* node = &document;
  std::string at;
  for (const std::string& key : keys) {
    const std::string here = at.empty() ? key : at + "." + key;
    if (node->is_object()) {
      auto it = node->find(key);
      if (it == node->end()) {
        if (problem) *problem = "unknown field '" + here + "'";
        return nullptr;
      }
      node = &*it;
    } else if (node->is_array()) {
      std::size_t index = 0;
      const bool digits = !key.empty() && key.size() < 10 &&
                          std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; });
      if (digits) index = static_cast<std::size_t>(std::stoul(key));
      if (!digits || index >= node->size()) {
        if (problem) {
          *problem = "'" + here + "': " + (digits ? "index " + key + " is out of range" : "not an index") +
                     " ('" + at + "' has " + std::to_string(node->size()) + " items)";
        }
        return nullptr;
      }
      node = &(*node)[index];
    } else {
      if (problem) *problem = "'" + at + "' has no field '" + key + "'";
      return nullptr;
    }
    at = here;
  }
  return node;
}

// A JSON value, or for a text field any text as it stands.
Json valueFor(const Json& target, const std::string& text, const std::string& path) {
  Json value = Json::parse(text, nullptr, false);
  if (target.is_string() && (value.is_discarded() || !value.is_string())) return Json(text);
  if (value.is_discarded()) throw FieldPathError("'" + text + "' is not a value for " + path);
  return value;
}

}  // namespace

FieldEdit parseFieldEdit(const std::string& a) {
  auto eq = a.find('=');
  if (eq == std::string::npos) throw FieldPathError("'" + a + "' is not FIELD=VALUE");
  return {a.substr(0, eq), a.substr(eq + 1)};
}

EditSettings applyFieldEdits(const EditSettings& current, const std::vector<FieldEdit>& edits) {
  Json document = Json::parse(current.encoded().value_or("{}"));
  std::vector<Assignment> done;
  for (const FieldEdit& e : edits) {
    Assignment assignment{e.path, splitPath(e.path)};
    std::string problem;
    Json* target = find(document, assignment.keys, &problem);
    if (!target) throw FieldPathError(problem);
    *target = valueFor(*target, e.value, assignment.path);
    done.push_back(assignment);
  }
  const std::string text = document.dump(-1, ' ', false, Json::error_handler_t::replace);
  EditSettings result = EditSettings::decode(std::string_view(text));
  auto encoded = result.encoded();
  if (!encoded) throw FieldPathError("the values given cannot be stored");
  Json back = Json::parse(*encoded);
  for (const Assignment& a : done) {
    Json* wanted = find(document, a.keys);
    Json* got = find(back, a.keys);
    // A later assignment may have replaced what an earlier one set: compare
    // with what the document finally holds at the path.
    if (wanted && (!got || *got != *wanted)) {
      throw FieldPathError(wanted->dump(-1, ' ', false, Json::error_handler_t::replace) +
                       " is not a valid value for " + a.path);
    }
  }
  return result;
}

}  // namespace lumivale
