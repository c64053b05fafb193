#include "engine/catalog/library_query.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "engine/catalog/photo_library.h"
#include "engine/util/text.h"
#include "engine/util/utf8.h"

namespace lumivale {
namespace {

// ---- Search tokens ---------------------------------------------------------

std::string contains(std::string_view value) { return "%" + std::string(value) + "%"; }

struct Comparison {
  std::string_view op;
  std::int64_t number;
};

// "rating:>=4" style values. The number is read as a whole number; text
// that is not one (rating:>=abc, rating:>=, iso:4.5, a number too large for
// 64 bits) counts as 0. The token still gives its one condition, as every
// token does, and the query never fails: search runs as the user types, and
// a half-typed comparison must not turn into an error. Binding the text
// itself is no better: SQLite ranks every text above every integer, so the
// result would be all or nothing depending on the operator.
Comparison comparison(std::string_view value) {
  static constexpr std::array<std::string_view, 5> operators{">=", "<=", ">", "<", "="};
  std::string_view op = "=";
  for (std::string_view candidate : operators) {
    if (value.substr(0, candidate.size()) == candidate) {
      op = candidate;
      value.remove_prefix(candidate.size());
      break;
    }
  }
  // One sign at most: "+5" is 5, "+-5" is not a number.
  const bool plus = !value.empty() && value.front() == '+';
  if (plus) value.remove_prefix(1);
  std::int64_t number = 0;
  auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (value.empty() || (plus && value.front() == '-') || error != std::errc() ||
      end != value.data() + value.size())
    number = 0;
  return Comparison{op, number};
}

const char* const anyFieldCondition =
    "(name LIKE ? OR camera LIKE ? OR lens LIKE ? OR id IN (SELECT photo FROM keywords WHERE word LIKE ?))";

void addToken(const std::string& token, std::vector<std::string>& conditions, std::vector<SQLValue>& params) {
  auto plainWord = [&] {
    conditions.emplace_back(anyFieldCondition);
    for (int i = 0; i < 4; ++i) params.emplace_back(contains(token));
  };
  auto colon = token.find(':');
  if (colon == std::string::npos || colon + 1 == token.size()) return plainWord();
  std::string key = asciiLowercased(std::string_view(token).substr(0, colon));
  std::string value = token.substr(colon + 1);

  if (key == "rating" || key == "stars" || key == "iso") {
    const Comparison parsed = comparison(value);
    conditions.push_back((key == "iso" ? "iso " : "rating ") + std::string(parsed.op) + " ?");
    params.emplace_back(parsed.number);
  } else if (key == "flag") {
    if (value == "pick" || value == "picked" || value == "picks") {
      conditions.emplace_back("flag = 1");
    } else if (value == "reject" || value == "rejected" || value == "rejects") {
      conditions.emplace_back("flag = -1");
    } else {
      conditions.emplace_back("flag = 0");
    }
  } else if (key == "label" || key == "color") {
    conditions.emplace_back("label = ?");
    params.emplace_back(value);
  } else if (key == "camera") {
    conditions.emplace_back("camera LIKE ?");
    params.emplace_back(contains(value));
  } else if (key == "lens") {
    conditions.emplace_back("lens LIKE ?");
    params.emplace_back(contains(value));
  } else if (key == "name" || key == "file") {
    conditions.emplace_back("name LIKE ?");
    params.emplace_back(contains(value));
  } else if (key == "keyword" || key == "kw" || key == "tag") {
    conditions.emplace_back("id IN (SELECT photo FROM keywords WHERE word LIKE ?)");
    params.emplace_back(contains(lowercased(value)));
  } else if (key == "type") {
    if (value == "raw") {
      conditions.emplace_back("raw = 1");
    } else {
      conditions.emplace_back("(raw = 0 AND ext LIKE ?)");
      params.emplace_back(contains(lowercased(value)));
    }
  } else if (key == "edited") {
    std::string yes = lowercased(value);
    conditions.emplace_back(yes == "yes" || yes == "true" || yes == "1" ? "edited = 1" : "edited = 0");
  } else {
    plainWord();
  }
}

}  // namespace

// ---- Enumerations ----------------------------------------------------------

const std::vector<FlagFilter>& allFlagFilters() {
  static const std::vector<FlagFilter> all{FlagFilter::any, FlagFilter::picks, FlagFilter::rejects,
                                           FlagFilter::unflagged, FlagFilter::notRejected};
  return all;
}

const std::vector<SortOrder>& allSortOrders() {
  static const std::vector<SortOrder> all{SortOrder::captureDate, SortOrder::importDate, SortOrder::name,
                                          SortOrder::rating,      SortOrder::editDate,   SortOrder::fileSize};
  return all;
}

const std::vector<ColorLabel>& allColorLabels() {
  static const std::vector<ColorLabel> all{ColorLabel::red, ColorLabel::yellow, ColorLabel::green,
                                           ColorLabel::blue, ColorLabel::purple};
  return all;
}

std::string_view key(FlagFilter filter) {
  switch (filter) {
    case FlagFilter::any:
      return "any";
    case FlagFilter::picks:
      return "picks";
    case FlagFilter::rejects:
      return "rejects";
    case FlagFilter::unflagged:
      return "unflagged";
    case FlagFilter::notRejected:
      return "notRejected";
  }
  return "any";
}

std::string_view title(FlagFilter filter) {
  switch (filter) {
    case FlagFilter::any:
      return "All flags";
    case FlagFilter::picks:
      return "Picks only";
    case FlagFilter::rejects:
      return "Rejected only";
    case FlagFilter::unflagged:
      return "Unflagged";
    case FlagFilter::notRejected:
      return "Hide rejected";
  }
  return "All flags";
}

std::string_view condition(FlagFilter filter) {
  switch (filter) {
    case FlagFilter::any:
      return "";
    case FlagFilter::picks:
      return "flag = 1";
    case FlagFilter::rejects:
      return "flag = -1";
    case FlagFilter::unflagged:
      return "flag = 0";
    case FlagFilter::notRejected:
      return "flag >= 0";
  }
  return "";
}

std::string_view key(SortOrder order) {
  switch (order) {
    case SortOrder::captureDate:
      return "captureDate";
    case SortOrder::importDate:
      return "importDate";
    case SortOrder::name:
      return "name";
    case SortOrder::rating:
      return "rating";
    case SortOrder::editDate:
      return "editDate";
    case SortOrder::fileSize:
      return "fileSize";
  }
  return "captureDate";
}

std::string_view title(SortOrder order) {
  switch (order) {
    case SortOrder::captureDate:
      return "Capture date";
    case SortOrder::importDate:
      return "Import date";
    case SortOrder::name:
      return "File name";
    case SortOrder::rating:
      return "Rating";
    case SortOrder::editDate:
      return "Edit date";
    case SortOrder::fileSize:
      return "File size";
  }
  return "Capture date";
}

std::string_view orderExpression(SortOrder order) {
  switch (order) {
    case SortOrder::captureDate:
      return "COALESCE(capture, imported)";
    case SortOrder::importDate:
      return "imported";
    case SortOrder::name:
      return "name COLLATE NOCASE";
    case SortOrder::rating:
      return "rating";
    case SortOrder::editDate:
      return "COALESCE(editDate, 0)";
    case SortOrder::fileSize:
      return "size";
  }
  return "COALESCE(capture, imported)";
}

std::string_view key(ColorLabel label) {
  switch (label) {
    case ColorLabel::red:
      return "red";
    case ColorLabel::yellow:
      return "yellow";
    case ColorLabel::green:
      return "green";
    case ColorLabel::blue:
      return "blue";
    case ColorLabel::purple:
      return "purple";
  }
  return "red";
}

std::string_view title(ColorLabel label) {
  switch (label) {
    case ColorLabel::red:
      return "Red";
    case ColorLabel::yellow:
      return "Yellow";
    case ColorLabel::green:
      return "Green";
    case ColorLabel::blue:
      return "Blue";
    case ColorLabel::purple:
      return "Purple";
  }
  return "Red";
}

std::string_view shortcut(ColorLabel label) {
  switch (label) {
    case ColorLabel::red:
      return "6";
    case ColorLabel::yellow:
      return "7";
    case ColorLabel::green:
      return "8";
    case ColorLabel::blue:
      return "9";
    case ColorLabel::purple:
      return "";
  }
  return "";
}

namespace {
template <class E>
std::optional<E> fromKey(const std::vector<E>& all, std::string_view text) {
  for (E e : all) {
    if (key(e) == text) return e;
  }
  return std::nullopt;
}
}  // namespace

std::optional<FlagFilter> flagFilterFromKey(std::string_view text) { return fromKey(allFlagFilters(), text); }
std::optional<SortOrder> sortOrderFromKey(std::string_view text) { return fromKey(allSortOrders(), text); }
std::optional<ColorLabel> colorLabelFromKey(std::string_view text) { return fromKey(allColorLabels(), text); }

// ---- Query -----------------------------------------------------------------

WhereClause LibraryQuery::whereClause() const {
  std::vector<std::string> conditions;
  std::vector<SQLValue> params;
  if (minRating >= 1) {
    conditions.emplace_back("rating >= ?");
    params.emplace_back(minRating);
  }
  if (auto c = condition(flag); !c.empty()) conditions.emplace_back(c);
  if (!labels.empty()) {
    std::string marks;
    for (const std::string& label : labels) {
      marks += marks.empty() ? "?" : ",?";
      params.emplace_back(label);
    }
    conditions.push_back("label IN (" + marks + ")");
  }
  if (folder) {
    // The folder and everything below it. A LIKE pattern folder + "/%" would
    // read '_' and '%' in folder names as wildcards (a scope "/a_b" would take
    // in "/axb/...") and compare ASCII letters without case, which is wrong
    // for the case-sensitive file systems here. A byte range does neither:
    // under BINARY collation the texts in [prefix, prefix with its final '/'
    // raised to '0') are exactly those that start with prefix, and the range
    // can use the folder index.
    // Stored folders have no trailing separator, so neither has the scope.
    std::string path = *folder;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    std::string prefix = path.empty() || path.back() != '/' ? path + '/' : path;
    std::string upper = prefix;
    upper.back() = '0';
    conditions.emplace_back("(folder = ? OR (folder >= ? AND folder < ?))");
    params.emplace_back(path);
    params.emplace_back(prefix);
    params.emplace_back(upper);
  }
  if (collection) {
    conditions.emplace_back("id IN (SELECT photo FROM collection_items WHERE collection = ?)");
    params.emplace_back(*collection);
  }
  if (editedOnly) conditions.emplace_back("edited = 1");
  for (const std::string& token : tokens(text)) addToken(token, conditions, params);

  WhereClause clause;
  for (const std::string& c : conditions) clause.sql += (clause.sql.empty() ? " WHERE " : " AND ") + c;
  clause.params = std::move(params);
  return clause;
}

std::string LibraryQuery::orderClause() const {
  std::string direction = ascending ? "ASC" : "DESC";
  return " ORDER BY " + std::string(orderExpression(sort)) + " " + direction + ", id " + direction;
}

std::vector<std::string> LibraryQuery::tokens(std::string_view text) {
  std::vector<std::string> result;
  std::string current;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size();) {
    Utf8Char c = decodeUtf8(text, i);
    if (c.valid && c.value == U'"') {
      quoted = !quoted;
    } else if (c.valid && !quoted && isWhiteSpace(c.value)) {
      if (!current.empty()) result.push_back(std::move(current));
      current.clear();
    } else {
      current.append(text.substr(i, c.length));
    }
    i += c.length;
  }
  if (!current.empty()) result.push_back(std::move(current));
  return result;
}

// ---- Running it ------------------------------------------------------------
//
// The grid's order is exactly the order of orderClause(), but the sorting is
// done here rather than by SQLite. SQLite's sorter carries every column of
// every row through the sort, which for 100,000 photos costs about as many
// instructions as reading them; sorting the decoded records by their key
// takes a small part of that (measured in bench/library_bench.cpp). So the
// statement reads the sort expression as one more column, without ORDER BY,
// and the key is compared by SQLite's own rules for ORDER BY: NULL before
// numbers (integers and reals by value) before text before blobs; text by
// bytes, or with ASCII letters folded for NOCASE; blobs by bytes; ties by id;
// a descending order reverses the whole comparison, NULLs included. The
// tests hold this order against SQLite's on awkward data.

namespace {

struct SortKey {
  int rank = 0;            // 0 NULL, 1 number, 2 text, 3 blob
  long double number = 0;  // holds every int64 and every double exactly
  std::string bytes;
  std::int64_t id = 0;
  std::size_t index = 0;
};

SortKey sortKeyOf(const SQLValue& value) {
  SortKey key;
  switch (value.kind()) {
    case SQLValue::Kind::integer:
      key.rank = 1;
      key.number = static_cast<long double>(value.intValue().value_or(0));
      break;
    case SQLValue::Kind::real:
      key.rank = 1;
      key.number = value.doubleValue().value_or(0);
      break;
    case SQLValue::Kind::text:
      key.rank = 2;
      key.bytes = value.stringValue().value_or("");
      break;
    case SQLValue::Kind::blob: {
      key.rank = 3;
      Blob b = value.dataValue().value_or(Blob{});
      key.bytes.assign(b.begin(), b.end());
      break;
    }
    case SQLValue::Kind::null:
      break;
  }
  return key;
}

int compareBytes(const std::string& a, const std::string& b, bool foldCase) {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    auto x = static_cast<unsigned char>(a[i]);
    auto y = static_cast<unsigned char>(b[i]);
    if (foldCase) {
      if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x + 32);
      if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y + 32);
    }
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

int compareKeys(const SortKey& a, const SortKey& b, bool foldCase) {
  int c = 0;
  if (a.rank != b.rank) {
    c = a.rank < b.rank ? -1 : 1;
  } else if (a.rank == 1) {
    c = a.number < b.number ? -1 : (b.number < a.number ? 1 : 0);
  } else if (a.rank >= 2) {
    c = compareBytes(a.bytes, b.bytes, foldCase && a.rank == 2);
  }
  if (c == 0) c = a.id < b.id ? -1 : (a.id > b.id ? 1 : 0);
  return c;
}

}  // namespace

std::vector<PhotoRecord> PhotoLibrary::photos(const LibraryQuery& query) {
  static const std::string fromPhotos = " FROM photos";
  static const std::size_t keyColumn = 22;
  WhereClause where = query.whereClause();
  std::string columns = recordColumns.substr(0, recordColumns.size() - fromPhotos.size());
  std::string sql = columns + ", " + std::string(orderExpression(query.sort)) + fromPhotos + where.sql;

  // Rows become records as they are read; holding them all as generic
  // values first would double the memory of the grid's largest read.
  // The whole catalog is a cheap upper bound on the rows to come (SQLite
  // counts a table from its b-tree pages); reserving it spares the grid's
  // largest read a dozen reallocations of every record read so far.
  const std::size_t expected = static_cast<std::size_t>(std::max(count(), 0));
  std::vector<PhotoRecord> decoded;
  std::vector<SortKey> keys;
  decoded.reserve(expected);
  keys.reserve(expected);
  db_->forEachRow(sql, where.params, [&](const SQLRow& row) {
    decoded.push_back(record(row));
    SortKey key = row.size() > keyColumn ? sortKeyOf(row[keyColumn]) : SortKey{};
    key.id = decoded.back().id;
    key.index = keys.size();
    keys.push_back(std::move(key));
  });

  const bool foldCase = query.sort == SortOrder::name;
  const bool ascending = query.ascending;
  std::sort(keys.begin(), keys.end(), [&](const SortKey& a, const SortKey& b) {
    int c = compareKeys(a, b, foldCase);
    return ascending ? c < 0 : c > 0;
  });

  std::vector<PhotoRecord> records;
  records.reserve(decoded.size());
  for (const SortKey& key : keys) records.push_back(std::move(decoded[key.index]));
  return records;
}

}  // namespace lumivale
