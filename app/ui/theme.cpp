#include "app/ui/theme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace lumivale::ui {

void applyDarkTheme(QApplication& app) {
  app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  QPalette p;
  p.setColor(QPalette::Window, theme::window);
  p.setColor(QPalette::WindowText, theme::text);
  p.setColor(QPalette::Base, theme::gridBackground);
  p.setColor(QPalette::AlternateBase, theme::panel);
  p.setColor(QPalette::ToolTipBase, theme::panel);
  p.setColor(QPalette::ToolTipText, theme::text);
  p.setColor(QPalette::PlaceholderText, theme::dimText);
  p.setColor(QPalette::Text, theme::text);
  p.setColor(QPalette::Button, theme::panel);
  p.setColor(QPalette::ButtonText, theme::text);
  p.setColor(QPalette::BrightText, Qt::white);
  p.setColor(QPalette::Highlight, theme::accent);
  p.setColor(QPalette::HighlightedText, Qt::white);
  p.setColor(QPalette::Link, theme::accent);
  p.setColor(QPalette::Light, QColor(0x48, 0x48, 0x4c));
  p.setColor(QPalette::Midlight, QColor(0x3a, 0x3a, 0x3e));
  p.setColor(QPalette::Mid, QColor(0x30, 0x30, 0x33));
  p.setColor(QPalette::Dark, QColor(0x1a, 0x1a, 0x1c));
  p.setColor(QPalette::Shadow, QColor(0x10, 0x10, 0x10));
  for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    p.setColor(QPalette::Disabled, role, QColor(0x6a, 0x6a, 0x70));
  }
  app.setPalette(p);
  app.setStyleSheet(
      QStringLiteral("QToolButton#sectionHeader { border: none; padding: 6px 4px; font-weight: 600;"
                     "  color: #e8e8ea; text-align: left; }"
                     "QToolButton#sectionHeader:hover { color: #ffffff; }"
                     "QLabel#dim { color: #96969c; }"
                     "QLabel#heading { color: #96969c; font-weight: 600; }"
                     "QLabel#catalogTitle { font-size: 15px; font-weight: 600; padding: 2px 4px; }"
                     "QLabel#emptyState { color: #a0a0a6; font-size: 15px; }"
                     "QSplitter::handle { background: #1a1a1c; }"
                     "QStatusBar { color: #b4b4ba; }"));
}

QColor labelColor(const QString& key) {
  if (key == QLatin1String("red")) return QColor(0xe5, 0x48, 0x4d);
  if (key == QLatin1String("yellow")) return QColor(0xf0, 0xc4, 0x2e);
  if (key == QLatin1String("green")) return QColor(0x4c, 0xb8, 0x5a);
  if (key == QLatin1String("blue")) return QColor(0x3f, 0x86, 0xe8);
  if (key == QLatin1String("purple")) return QColor(0xa0, 0x5c, 0xd6);
  return {};
}

}  // namespace lumivale::ui
