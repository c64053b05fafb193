#pragma once
// What the library grid shows: filters, scope, search text and sort order,
// and how they become one SQL statement over `photos`.
//
// Every value that comes from the user (search words, folder, labels,
// numbers) reaches SQLite as a bound parameter; the SQL text itself is built
// only from fixed fragments, so no search text can change the statement.

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "engine/catalog/sqlite_db.h"

namespace lumivale {

/// The filter bar's flag filter, persisted by its key.
enum class FlagFilter { any, picks, rejects, unflagged, notRejected };

/// The grid's sort key, persisted by its key.
enum class SortOrder { captureDate, importDate, name, rating, editDate, fileSize };

/// A colour label; its key is also its value in `photos.label`.
enum class ColorLabel { red, yellow, green, blue, purple };

/// Every case, in the order menus list them.
const std::vector<FlagFilter>& allFlagFilters();
const std::vector<SortOrder>& allSortOrders();
const std::vector<ColorLabel>& allColorLabels();

std::string_view key(FlagFilter filter);
std::string_view key(SortOrder order);
std::string_view key(ColorLabel label);

/// The text the user sees ("Picks only", "Capture date", "Red").
std::string_view title(FlagFilter filter);
std::string_view title(SortOrder order);
std::string_view title(ColorLabel label);

/// The keyboard key that sets a label ("6" for red ... "9" for blue), or
/// empty when the label has none.
std::string_view shortcut(ColorLabel label);

/// The SQL condition of a flag filter; empty for `any`.
std::string_view condition(FlagFilter filter);
/// The ORDER BY expression of a sort key (without direction).
std::string_view orderExpression(SortOrder order);

/// The case with this key, or nothing. Keys compare exactly.
std::optional<FlagFilter> flagFilterFromKey(std::string_view text);
std::optional<SortOrder> sortOrderFromKey(std::string_view text);
std::optional<ColorLabel> colorLabelFromKey(std::string_view text);

/// The filter bar's help line for the search field.
inline constexpr const char* searchHelp =
    "Search: words, rating:>=3, flag:pick, label:red, iso:>800, camera:canon, keyword:sky";

/// SQL text to append after a SELECT ... FROM photos, and the values of its
/// "?" parameters in order.
struct WhereClause {
  std::string sql;  ///< empty, or " WHERE " and the conditions joined by " AND "
  std::vector<SQLValue> params;
  bool operator==(const WhereClause&) const = default;
};

struct LibraryQuery {
  std::string text;   ///< search field text, see `tokens`
  int minRating = 0;  ///< minimum stars; 0 means no rating filter
  FlagFilter flag = FlagFilter::any;
  std::set<std::string> labels;       ///< label keys to show; empty means all
  std::optional<std::string> folder;  ///< absolute folder; includes its subfolders
  std::optional<std::int64_t> collection;
  bool editedOnly = false;
  SortOrder sort = SortOrder::captureDate;
  bool ascending = false;  ///< false: newest or largest first

  bool operator==(const LibraryQuery&) const = default;

  /// The filter as SQL with bound parameters. Never fails: search text that
  /// makes no sense restricts nothing more than the rules say.
  WhereClause whereClause() const;

  /// " ORDER BY <expression> <dir>, id <dir>": the order in which
  /// `PhotoLibrary::photos` returns photos. id breaks ties in the same
  /// direction, so the order is total and stable between reloads.
  std::string orderClause() const;

  /// Splits search text at white space outside double quotes. Quotes group
  /// and are dropped; an unbalanced quote runs to the end of the text.
  static std::vector<std::string> tokens(std::string_view text);
};

}  // namespace lumivale
