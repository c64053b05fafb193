#pragma once
// The help viewer (short how-to topics) and the about box (version and the
// third-party notices).

#include <QString>
#include <utility>
#include <vector>

class QWidget;

namespace lumivale::ui {

/// The help topics in order: title and HTML body.
const std::vector<std::pair<QString, QString>>& helpTopics();
/// The notices of the libraries the program is built on, as HTML.
QString thirdPartyNotices();

void showHelp(QWidget* parent);
void showAbout(QWidget* parent);

}  // namespace lumivale::ui
