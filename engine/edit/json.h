#pragma once
// The JSON text of stored develop settings: a byte-exact writer and a
// streaming reader.
//
// The writer produces the one canonical form that equal records must share:
// no whitespace, numbers in their shortest round-trip text, strings escaped
// where JSON demands it plus "/" as "\/", and always valid UTF-8. Callers write object
// keys in ascending byte order themselves; the writer does not sort.
//
// The reader walks the text without building a tree, so memory stays
// proportional to what the caller keeps, whatever the input holds. It is
// strict about syntax (RFC 8259): any syntax error, and nesting deeper than
// `maxDepth`, throws `JsonSyntaxError`, and the caller drops the whole
// document. Malformed UTF-8 inside strings is not a syntax error: it reads
// as U+FFFD, like the writer writes it.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace lumivale {

class JsonWriter {
 public:
  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  /// The key of the next member; write its value right after.
  void key(std::string_view name);

  /// A finite double in its shortest round-trip form ("25", "0.1", "1e+300");
  /// −0 is written "0". NaN and infinities have no JSON form: the writer is
  /// marked as failed.
  void value(double v);
  void value(std::int64_t v);
  void value(bool v);
  /// A string; bytes that are not valid UTF-8 are written as U+FFFD.
  void value(std::string_view text);

  /// True once a value could not be written; the text is then unusable.
  bool failed() const { return failed_; }
  const std::string& text() const { return out; }
  std::string take() { return std::move(out); }

 private:
  void separate();

  std::string out;
  bool needComma = false;
  bool afterKey = false;
  bool failed_ = false;
};

/// The text is not JSON, or is nested deeper than `JsonReader::maxDepth`.
class JsonSyntaxError : public std::runtime_error {
 public:
  JsonSyntaxError() : std::runtime_error("malformed JSON") {}
};

class JsonReader {
 public:
  enum class Kind { object, array, string, number, boolean, null };
  /// Containers nested deeper than this are refused as a syntax error; no
  /// stored record comes anywhere near it.
  static constexpr int maxDepth = 512;

  /// The reader keeps a view of `text`: it must outlive the reader.
  explicit JsonReader(std::string_view text) : in(text) {}

  /// The kind of the next value, without consuming it.
  Kind peek();

  /// Consumes "{"; then call `nextKey` until it returns false.
  void beginObject();
  /// Reads the next member's key and its ":"; false (having consumed "}")
  /// when the object ends. The member's value must be consumed before the
  /// next call.
  bool nextKey(std::string& key);
  /// Consumes "["; then call `nextElement` until it returns false.
  void beginArray();
  /// True when another element follows (to be consumed next); false, having
  /// consumed "]", when the array ends.
  bool nextElement();

  void readString(std::string& out);
  /// The text of a number, checked against the JSON grammar.
  std::string_view readNumber();
  bool readBool();
  void readNull();
  /// Consumes one value of any kind, checking its syntax.
  void skipValue();
  /// Only whitespace may follow the top-level value.
  void finish();

 private:
  void skipWhitespace();
  [[noreturn]] static void fail();
  void expect(char c);
  void enter();
  /// Past a ",", true when another member or element follows; false, having
  /// consumed `close`, when the container ends.
  bool nextItem(char close);
  void readStringInto(std::string* out);

  std::string_view in;
  std::size_t pos = 0;
  int depth = 0;
  bool first = false;
  std::string scratch;
};

/// A number read as a double: the nearest double, ±0 for magnitudes below the
/// smallest one; nothing when it lies beyond the largest double.
std::optional<double> jsonDouble(std::string_view number);
/// A number read as an integer: any integer-valued number within the 64-bit
/// range, whether written 25, 25.0 or 2.5e1; nothing for 25.5.
std::optional<std::int64_t> jsonInteger(std::string_view number);

}  // namespace lumivale
