#pragma once
// The help viewer (short how-to topics) and the about box (version, the
// catalog's backups and the third-party notices).

#include <QString>
#include <utility>
#include <vector>

class QWidget;

namespace lumivale::app {
struct BackupState;
class VeskModel;
}  // namespace lumivale::app

namespace lumivale::ui {

/// The help topics in order: title and HTML body.
const std::vector<std::pair<QString, QString>>& helpTopics();
/// The notices of the libraries the program is built on, as HTML.
QString thirdPartyNotices();

/// The catalog's backups and last check, one fact per line, for the about box.
QString backupSummary(const app::BackupState& state);

void showHelp(QWidget* parent);
/// The about box, with the catalog's backup state read afresh.
void showAbout(QWidget* parent, app::VeskModel& model);

}  // namespace lumivale::ui
