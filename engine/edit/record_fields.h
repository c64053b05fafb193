#pragma once
// How the value records of the edit layer are described. Internal to the
// edit layer (and its tests): other layers use `EditSettings` and its
// operations.
//
// Each record is described once, by a table of its fields in declaration
// order. The table drives everything done to a record field by field: its
// stored JSON form, its hash, the settings group of each field of
// `EditSettings` (merging, changed groups) and editing by field path. A field
// added to a record and to its table is stored, hashed, grouped and editable;
// one left out of the table is none of these, so keep the two together.
//
// `Codec<T>::read` consumes exactly one JSON value and reports whether it
// had the type T expects; a value of the wrong type is still consumed, so
// the caller can go on with the next key. Syntax errors throw
// `JsonSyntaxError` and end the whole document.
//
// A table is kept sorted by key: the writer walks it in that order, which
// keeps keys sorted in the output, and the reader looks keys up in it. Nested
// records are strict: every required key must be present and well typed.
// Unknown keys are skipped. Hashing walks the fields in declaration order.

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "engine/edit/base64.h"
#include "engine/edit/edit_settings.h"
#include "engine/edit/field_path.h"
#include "engine/edit/json.h"
#include "engine/edit/value_hash.h"
#include "engine/util/text.h"

namespace lumivale::codec {

template <class T>
struct Codec;

// ---- the records ----

/// True for the records described by a field table (see `fieldsOf`).
template <class T>
inline constexpr bool isRecord = false;

template <class Record>
struct RecordFields;
template <class Record>
struct FieldSpec;
class PathWalk;

/// The field table of a record; defined next to the table.
template <class Record>
RecordFields<Record> fieldsOf();

#define LUMIVALE_RECORD(Type)                  \
  template <>                                  \
  inline constexpr bool isRecord<Type> = true; \
  template <>                                  \
  RecordFields<Type> fieldsOf<Type>();

LUMIVALE_RECORD(CurvePoint)
LUMIVALE_RECORD(ToneCurve)
LUMIVALE_RECORD(HSLBand)
LUMIVALE_RECORD(GradeWheel)
LUMIVALE_RECORD(CropRect)
LUMIVALE_RECORD(MaskAdjust)
LUMIVALE_RECORD(BrushDab)
LUMIVALE_RECORD(PhotoMask)
LUMIVALE_RECORD(EditSettings)

#undef LUMIVALE_RECORD

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

/// Lists of values; binary data (a byte vector) is one value, not a list.
template <class T>
struct IsList : std::false_type {};
template <class T>
struct IsList<std::vector<T>> : std::bool_constant<!std::is_same_v<T, std::uint8_t>> {};

/// Values stored as a JSON string: a field path may give them as plain text.
template <class T>
struct IsText : std::bool_constant<std::is_same_v<T, std::string> || std::is_same_v<T, MaskKind> ||
                                   std::is_same_v<T, std::vector<std::uint8_t>>> {};
template <class T>
struct IsText<std::optional<T>> : IsText<T> {};

// ---- scalar codecs ----

/// True when the next value is of `kind`; else consumes it and says false.
inline bool expectKind(JsonReader& r, JsonReader::Kind kind) {
  if (r.peek() == kind) return true;
  r.skipValue();
  return false;
}

template <>
struct Codec<double> {
  static bool read(JsonReader& r, double& out) {
    if (!expectKind(r, JsonReader::Kind::number)) return false;
    const auto v = jsonDouble(r.readNumber());
    if (!v) return false;
    out = *v;
    return true;
  }
  static void write(JsonWriter& w, double v) { w.value(v); }
};

// Integers may be written with a zero fraction: 25.0 and 2.5e1 read as 25,
// so a blob that passed through a tool storing every number as a double
// still reads; 25.5 is refused, it is no integer.
template <>
struct Codec<std::int64_t> {
  static bool read(JsonReader& r, std::int64_t& out) {
    if (!expectKind(r, JsonReader::Kind::number)) return false;
    const auto v = jsonInteger(r.readNumber());
    if (!v) return false;
    out = *v;
    return true;
  }
  static void write(JsonWriter& w, std::int64_t v) { w.value(v); }
};

template <>
struct Codec<bool> {
  static bool read(JsonReader& r, bool& out) {
    if (!expectKind(r, JsonReader::Kind::boolean)) return false;
    out = r.readBool();
    return true;
  }
  static void write(JsonWriter& w, bool v) { w.value(v); }
};

template <>
struct Codec<std::string> {
  static bool read(JsonReader& r, std::string& out) {
    if (!expectKind(r, JsonReader::Kind::string)) return false;
    r.readString(out);
    return true;
  }
  static void write(JsonWriter& w, const std::string& v) { w.value(std::string_view(v)); }
};

/// Binary data: a base64 string.
template <>
struct Codec<std::vector<std::uint8_t>> {
  static bool read(JsonReader& r, std::vector<std::uint8_t>& out) {
    std::string text;
    if (!Codec<std::string>::read(r, text)) return false;
    auto bytes = base64Decode(text);
    if (!bytes) return false;
    out = std::move(*bytes);
    return true;
  }
  static void write(JsonWriter& w, const std::vector<std::uint8_t>& v) {
    w.value(std::string_view(base64Encode(v)));
  }
};

/// A mask kind: its key. Defined with the kinds.
template <>
struct Codec<MaskKind> {
  static bool read(JsonReader& r, MaskKind& out);
  static void write(JsonWriter& w, const MaskKind& v);
};

/// Arrays: one element of the wrong type fails the whole array.
template <class T>
struct Codec<std::vector<T>> {
  static bool read(JsonReader& r, std::vector<T>& out) {
    if (!expectKind(r, JsonReader::Kind::array)) return false;
    out.clear();
    bool ok = true;
    r.beginArray();
    while (r.nextElement()) {
      T element{};
      if (!Codec<T>::read(r, element)) {
        ok = false;
      } else if (ok) {
        out.push_back(std::move(element));
      }
    }
    if (!ok) out.clear();
    return ok;
  }
  static void write(JsonWriter& w, const std::vector<T>& v) {
    w.beginArray();
    for (const T& element : v) Codec<T>::write(w, element);
    w.endArray();
  }
};

/// Optional values: null reads as absent; an absent value is not written at
/// all (see `writeMember`).
template <class T>
struct Codec<std::optional<T>> {
  static bool read(JsonReader& r, std::optional<T>& out) {
    if (r.peek() == JsonReader::Kind::null) {
      r.readNull();
      out.reset();
      return true;
    }
    T value{};
    if (!Codec<T>::read(r, value)) return false;
    out = std::move(value);
    return true;
  }
  static void write(JsonWriter& w, const std::optional<T>& v) { Codec<T>::write(w, *v); }
};

template <class T>
void writeMember(JsonWriter& w, std::string_view key, const T& v) {
  if constexpr (IsOptional<T>::value) {
    if (!v) return;
  }
  w.key(key);
  Codec<T>::write(w, v);
}

// ---- hashing ----

template <class Record>
void hashRecord(Hasher& h, const Record& record);

/// Feeds one value: lists as their count and then each element, optionals as
/// whether they are present and then the value, kinds as their ordinal.
template <class T>
void hashValue(Hasher& h, const T& v) {
  if constexpr (isRecord<T>) {
    hashRecord(h, v);
  } else if constexpr (std::is_same_v<T, std::string>) {
    h.add(std::string_view(v));
  } else if constexpr (std::is_same_v<T, std::vector<std::uint8_t>>) {
    h.add(std::string_view(reinterpret_cast<const char*>(v.data()), v.size()));
  } else if constexpr (IsList<T>::value) {
    h.addCount(v.size());
    for (const auto& element : v) hashValue(h, element);
  } else if constexpr (IsOptional<T>::value) {
    h.add(v.has_value());
    if (v) hashValue(h, *v);
  } else if constexpr (std::is_enum_v<T>) {
    h.add(static_cast<std::int64_t>(v));
  } else {
    h.add(v);
  }
}

// ---- field paths ----

/// One field-path edit on its way down through the records: the keys of its
/// path, how many of them the walk has taken, and the value's text. Every
/// refusal throws `FieldPathError` naming the path.
class PathWalk {
 public:
  /// Throws when the path has an empty key ("crop..w", "", "crop.").
  explicit PathWalk(const FieldEdit& edit);

  bool atEnd() const { return taken == keys.size(); }
  /// Takes the next key.
  std::string_view nextKey() { return keys[taken++]; }
  /// Takes the next key as an index into a list of `count` items; throws
  /// when it is no index or out of range.
  std::size_t nextIndex(std::size_t count);

  /// The key just taken names no field.
  [[noreturn]] void unknownField() const;
  /// Keys remain, but the walk has reached a value without fields.
  [[noreturn]] void noFieldsHere() const;
  /// The value does not fit the field (`text`: the field is stored as text).
  [[noreturn]] void refuse(bool text) const;

  /// Reads the value into `target` with its codec: JSON, or for a value
  /// stored as text any text as it stands that is not a JSON string.
  template <class T>
  void assign(T& target) const;

 private:
  /// The path up to and including the first `count` keys.
  std::string_view walked(std::size_t count) const;

  const FieldEdit& edit;
  std::vector<std::string_view> keys;
  std::size_t taken = 0;
};

/// The text as a JSON string (bytes that are not UTF-8 as U+FFFD).
std::string jsonString(std::string_view text);
/// True when `text` is one JSON string and nothing else.
bool isJsonString(std::string_view text);

/// Reads `json` whole with the codec of T; false when it is malformed, of
/// the wrong type, or followed by more than white space.
template <class T>
bool readWhole(std::string_view json, T& out) {
  try {
    JsonReader r(json);
    const bool ok = Codec<T>::read(r, out);
    r.finish();
    return ok;
  } catch (const JsonSyntaxError&) {
    return false;
  }
}

template <class T>
void PathWalk::assign(T& target) const {
  constexpr bool text = IsText<T>::value;
  // Text that is not UTF-8 would not be stored as given.
  if (text && !isUtf8(edit.value)) refuse(text);
  if (readWhole(edit.value, target)) return;
  if (text && !isJsonString(edit.value) && readWhole(jsonString(edit.value), target)) return;
  refuse(text);
}

/// Carries an edit on into `target`: at the end of the path the value is
/// assigned whole; else the next key picks a field of a record or an element
/// of a list.
template <class T>
void editValue(T& target, PathWalk& walk) {
  if (walk.atEnd()) return walk.assign(target);
  if constexpr (isRecord<T>) {
    const FieldSpec<T>* field = fieldsOf<T>().find(walk.nextKey());
    if (!field) walk.unknownField();
    field->edit(target, walk);
  } else if constexpr (IsList<T>::value) {
    editValue(target[walk.nextIndex(target.size())], walk);
  } else {
    walk.noFieldsHere();
  }
}

// ---- field tables ----

template <class Record>
struct FieldSpec {
  std::string_view key;
  /// Reads the member; false when the value had the wrong type.
  bool (*read)(JsonReader&, Record&);
  /// Writes key and value (nothing for an absent optional).
  void (*write)(JsonWriter&, std::string_view, const Record&);
  /// Whether a strict read needs the key (optionals do not).
  bool required;
  void (*hash)(Hasher&, const Record&);
  bool (*equal)(const Record&, const Record&);
  /// Copies the member from one record into another, as merging does.
  void (*transfer)(const Record& from, Record& to);
  /// Carries a field-path edit on into the member.
  void (*edit)(Record&, PathWalk&);
  /// The settings group of a field of `EditSettings`; none for `version`
  /// and for the fields of the nested records.
  std::optional<SettingsGroup> group;
};

template <class M>
struct MemberTraits;
template <class C, class T>
struct MemberTraits<T C::*> {
  using Record = C;
  using Type = T;
};

/// The field spec of one data member, read, written, hashed and edited as
/// its type is.
template <auto Member>
constexpr FieldSpec<typename MemberTraits<decltype(Member)>::Record> field(
    std::string_view key, std::optional<SettingsGroup> group = std::nullopt) {
  using Record = typename MemberTraits<decltype(Member)>::Record;
  using Type = typename MemberTraits<decltype(Member)>::Type;
  return {key,
          [](JsonReader& r, Record& record) { return Codec<Type>::read(r, record.*Member); },
          [](JsonWriter& w, std::string_view k, const Record& record) { writeMember(w, k, record.*Member); },
          !IsOptional<Type>::value,
          [](Hasher& h, const Record& record) { hashValue(h, record.*Member); },
          [](const Record& a, const Record& b) { return a.*Member == b.*Member; },
          [](const Record& from, Record& to) { to.*Member = from.*Member; },
          [](Record& record, PathWalk& walk) { editValue(record.*Member, walk); },
          group};
}

/// A table as it is stored: the fields sorted by key (byte-wise), and their
/// indexes in declaration order.
template <class Record, std::size_t N>
struct RecordTable {
  std::array<FieldSpec<Record>, N> fields;
  std::array<std::uint8_t, N> declared;
};

/// Makes a table from fields in declaration order. Used in constant
/// initialisers only: repeated keys, or more than 64 fields (see
/// `readRecord`), stop the compilation there.
template <class Record, std::size_t N>
constexpr RecordTable<Record, N> recordTable(const std::array<FieldSpec<Record>, N>& inOrder) {
  static_assert(N <= 64);
  std::array<std::uint8_t, N> byKey{};
  for (std::size_t i = 0; i < N; ++i) byKey[i] = static_cast<std::uint8_t>(i);
  std::sort(byKey.begin(), byKey.end(),
            [&](std::uint8_t a, std::uint8_t b) { return inOrder[a].key < inOrder[b].key; });
  RecordTable<Record, N> table{inOrder, {}};
  for (std::size_t i = 0; i < N; ++i) {
    table.fields[i] = inOrder[byKey[i]];
    table.declared[byKey[i]] = static_cast<std::uint8_t>(i);
    if (i > 0 && table.fields[i - 1].key == table.fields[i].key) throw std::logic_error("repeated key");
  }
  return table;
}

/// A view of a record's table.
template <class Record>
struct RecordFields {
  std::span<const FieldSpec<Record>> fields;  ///< sorted by key
  std::span<const std::uint8_t> declared;     ///< indexes of `fields` in declaration order

  template <std::size_t N>
  constexpr RecordFields(const RecordTable<Record, N>& table)
      : fields(table.fields), declared(table.declared) {}

  /// Index of `key` in `fields`, or the number of fields.
  std::size_t indexOf(std::string_view key) const {
    const auto it =
        std::lower_bound(fields.begin(), fields.end(), key,
                         [](const FieldSpec<Record>& f, std::string_view k) { return f.key < k; });
    if (it == fields.end() || it->key != key) return fields.size();
    return static_cast<std::size_t>(it - fields.begin());
  }
  const FieldSpec<Record>* find(std::string_view key) const {
    const std::size_t i = indexOf(key);
    return i < fields.size() ? &fields[i] : nullptr;
  }
};

/// Defines `fieldsOf<Type>()` as `table`; written next to each table.
#define LUMIVALE_FIELDS_OF(Type, table) \
  template <>                           \
  RecordFields<Type> fieldsOf<Type>() { \
    return table;                       \
  }

template <class Record>
void hashRecord(Hasher& h, const Record& record) {
  const RecordFields<Record> table = fieldsOf<Record>();
  for (std::uint8_t i : table.declared) table.fields[i].hash(h, record);
}

template <class Record>
void writeRecord(JsonWriter& w, const Record& record, RecordFields<Record> table) {
  w.beginObject();
  for (const auto& f : table.fields) f.write(w, f.key, record);
  w.endObject();
}

/// Reads the members of an object (the reader at its `{`): each known key
/// into `record`, calling `done(index, wellTyped)`; unknown keys are skipped.
template <class Record, class Done>
void readMembers(JsonReader& r, Record& record, RecordFields<Record> table, Done done) {
  std::string key;
  r.beginObject();
  while (r.nextKey(key)) {
    const std::size_t i = table.indexOf(key);
    if (i == table.fields.size()) {
      r.skipValue();
    } else {
      done(i, table.fields[i].read(r, record));
    }
  }
}

/// Strict: true only when the value is an object in which every required key
/// is present and every known key, optional ones too, is well typed. The
/// last of repeated keys wins.
template <class Record>
bool readRecord(JsonReader& r, Record& record, RecordFields<Record> table) {
  if (!expectKind(r, JsonReader::Kind::object)) return false;
  std::bitset<64> seen;
  std::bitset<64> good;
  readMembers(r, record, table, [&](std::size_t i, bool wellTyped) {
    seen.set(i);
    good.set(i, wellTyped);
  });
  for (std::size_t i = 0; i < table.fields.size(); ++i) {
    if (seen.test(i) ? !good.test(i) : table.fields[i].required) return false;
  }
  return true;
}

/// Tolerant: every key on its own; a missing key keeps its current value, a
/// null or mistyped one is put back to its value in a default record. The
/// value must be an object (checked by the caller).
template <class Record>
void readRecordTolerantly(JsonReader& r, Record& record, RecordFields<Record> table) {
  static const Record defaults{};
  readMembers(r, record, table, [&](std::size_t i, bool wellTyped) {
    if (!wellTyped) table.fields[i].transfer(defaults, record);
  });
}

/// Records read and write through their tables.
template <class T>
requires isRecord<T>
struct Codec<T> {
  static bool read(JsonReader& r, T& out) { return readRecord(r, out, fieldsOf<T>()); }
  static void write(JsonWriter& w, const T& v) { writeRecord(w, v, fieldsOf<T>()); }
};

}  // namespace lumivale::codec
