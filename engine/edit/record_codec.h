#pragma once
// How the value records of the edit layer map to JSON. Internal to the edit
// layer (and its tests): other layers use `EditSettings::encoded`/`decode`.
//
// `Codec<T>::read` consumes exactly one JSON value and reports whether it
// had the type T expects; a value of the wrong type is still consumed, so
// the caller can go on with the next key. Syntax errors throw
// `JsonSyntaxError` and end the whole document.
//
// A record is described once by a table of its fields (key, reader, writer),
// sorted by key at compile time: the writer walks the table in that order,
// which is what keeps keys sorted in the output, and the reader looks keys
// up in it. Nested records are strict: every required key must be present
// and well typed. Unknown keys are skipped.

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "engine/edit/base64.h"
#include "engine/edit/edit_settings.h"
#include "engine/edit/json.h"

namespace lumivale::codec {

template <class T>
struct Codec;

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
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <class T>
void writeMember(JsonWriter& w, std::string_view key, const T& v) {
  if constexpr (IsOptional<T>::value) {
    if (!v) return;
  }
  w.key(key);
  Codec<T>::write(w, v);
}

// ---- records ----

template <class Record>
struct FieldSpec {
  std::string_view key;
  /// Reads the member; false when the value had the wrong type.
  bool (*read)(JsonReader&, Record&);
  /// Writes key and value (nothing for an absent optional).
  void (*write)(JsonWriter&, std::string_view, const Record&);
  /// Puts the member back to its value in a default record.
  void (*reset)(Record&);
  /// Whether a strict read needs the key (optionals do not).
  bool required;
};

template <class M>
struct MemberTraits;
template <class C, class T>
struct MemberTraits<T C::*> {
  using Record = C;
  using Type = T;
};

/// The field spec of one data member, read and written with its type's codec.
template <auto Member>
constexpr FieldSpec<typename MemberTraits<decltype(Member)>::Record> field(std::string_view key) {
  using Record = typename MemberTraits<decltype(Member)>::Record;
  using Type = typename MemberTraits<decltype(Member)>::Type;
  return {key, [](JsonReader& r, Record& record) { return Codec<Type>::read(r, record.*Member); },
          [](JsonWriter& w, std::string_view k, const Record& record) { writeMember(w, k, record.*Member); },
          [](Record& record) {
            static const Record defaults{};
            record.*Member = defaults.*Member;
          },
          !IsOptional<Type>::value};
}

/// The fields sorted by key (byte-wise), at compile time.
template <class Record, std::size_t N>
constexpr std::array<FieldSpec<Record>, N> sortedByKey(std::array<FieldSpec<Record>, N> fields) {
  std::sort(fields.begin(), fields.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
  return fields;
}

template <class Record, std::size_t N>
constexpr bool keysAreUnique(const std::array<FieldSpec<Record>, N>& sorted) {
  for (std::size_t i = 1; i < N; ++i) {
    if (sorted[i - 1].key == sorted[i].key) return false;
  }
  return true;
}

/// Index of `key` in a sorted table, or N.
template <class Record, std::size_t N>
std::size_t findField(const std::array<FieldSpec<Record>, N>& sorted, std::string_view key) {
  const auto it = std::lower_bound(sorted.begin(), sorted.end(), key,
                                   [](const FieldSpec<Record>& f, std::string_view k) { return f.key < k; });
  if (it == sorted.end() || it->key != key) return N;
  return static_cast<std::size_t>(it - sorted.begin());
}

template <class Record, std::size_t N>
void writeRecord(JsonWriter& w, const Record& record, const std::array<FieldSpec<Record>, N>& sorted) {
  w.beginObject();
  for (const auto& f : sorted) f.write(w, f.key, record);
  w.endObject();
}

/// Reads the members of an object (the reader at its `{`): each known key
/// into `record`, calling `done(index, wellTyped)`; unknown keys are skipped.
template <class Record, std::size_t N, class Done>
void readMembers(JsonReader& r, Record& record, const std::array<FieldSpec<Record>, N>& sorted, Done done) {
  std::string key;
  r.beginObject();
  while (r.nextKey(key)) {
    const std::size_t i = findField(sorted, key);
    if (i == N) {
      r.skipValue();
    } else {
      done(i, sorted[i].read(r, record));
    }
  }
}

/// Strict: true only when the value is an object in which every required key
/// is present and every known key, optional ones too, is well typed. The
/// last of repeated keys wins.
template <class Record, std::size_t N>
bool readRecord(JsonReader& r, Record& record, const std::array<FieldSpec<Record>, N>& sorted) {
  if (!expectKind(r, JsonReader::Kind::object)) return false;
  std::bitset<N> seen;
  std::bitset<N> good;
  readMembers(r, record, sorted, [&](std::size_t i, bool wellTyped) {
    seen.set(i);
    good.set(i, wellTyped);
  });
  for (std::size_t i = 0; i < N; ++i) {
    if (seen.test(i) ? !good.test(i) : sorted[i].required) return false;
  }
  return true;
}

/// Tolerant: every key on its own; a missing key keeps its current value, a
/// null or mistyped one is put back to its default. The value must be an
/// object (checked by the caller).
template <class Record, std::size_t N>
void readRecordTolerantly(JsonReader& r, Record& record, const std::array<FieldSpec<Record>, N>& sorted) {
  readMembers(r, record, sorted, [&](std::size_t i, bool wellTyped) {
    if (!wellTyped) sorted[i].reset(record);
  });
}

// Records defined elsewhere in the layer.
#define LUMIVALE_RECORD_CODEC(Type)                  \
  template <>                                        \
  struct Codec<Type> {                               \
    static bool read(JsonReader& r, Type& out);      \
    static void write(JsonWriter& w, const Type& v); \
  };

LUMIVALE_RECORD_CODEC(CurvePoint)
LUMIVALE_RECORD_CODEC(ToneCurve)
LUMIVALE_RECORD_CODEC(HSLBand)
LUMIVALE_RECORD_CODEC(GradeWheel)
LUMIVALE_RECORD_CODEC(CropRect)
LUMIVALE_RECORD_CODEC(MaskKind)
LUMIVALE_RECORD_CODEC(MaskAdjust)
LUMIVALE_RECORD_CODEC(BrushDab)
LUMIVALE_RECORD_CODEC(PhotoMask)

#undef LUMIVALE_RECORD_CODEC

}  // namespace lumivale::codec
