#include <chrono>

#include "engine/catalog/catalog_safety.h"
#include "engine/media/safe_file.h"
#include "engine/util/clock.h"

namespace lumivale {

std::string CatalogCheck::summary() const {
  constexpr std::size_t shown = 3;
  std::string text;
  for (std::size_t i = 0; i < problems.size() && i < shown; ++i) text += (i ? "; " : "") + problems[i];
  if (problems.size() > shown) text += " (and " + std::to_string(problems.size() - shown) + " more)";
  return text;
}

CatalogCheck CatalogCheck::failedWith(std::string problem) {
  CatalogCheck check;
  check.outcome = Outcome::failed;
  check.problems.push_back(std::move(problem));
  check.at = nowSeconds();
  return check;
}

CatalogCheck checkCatalog(SQLiteDB& db, std::string reason) {
  CatalogCheck check;
  check.reason = std::move(reason);
  check.at = nowSeconds();
  const auto start = std::chrono::steady_clock::now();
  check.problems = db.quickCheck();
  check.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  check.outcome = check.problems.empty() ? CatalogCheck::Outcome::passed : CatalogCheck::Outcome::failed;
  return check;
}

namespace {

std::string damagedMessage(const std::filesystem::path& database, const CatalogCheck& check,
                           const std::optional<BackupInfo>& lastGood) {
  std::string text = "The catalog " + quotedPath(database) + " is damaged (" + check.summary() +
                     "). It was not opened for changes, and nothing was deleted. ";
  if (lastGood) {
    text += "The last good backup is " + quotedPath(lastGood->path);
    if (lastGood->photos) {
      text += " (" + std::to_string(*lastGood->photos) + (*lastGood->photos == 1 ? " photo)" : " photos)");
    }
    return text + ".";
  }
  return text + "There is no good backup in " + quotedPath(CatalogBackups::folder(database.parent_path())) +
         ".";
}

}  // namespace

CatalogDamaged::CatalogDamaged(const std::filesystem::path& database, CatalogCheck check,
                               std::optional<BackupInfo> lastGoodBackup)
    : SQLError(damagedMessage(database, check, lastGoodBackup)),
      check_(std::move(check)),
      lastGood(std::move(lastGoodBackup)) {}

}  // namespace lumivale
