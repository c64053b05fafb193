#pragma once
// The look of the window: Fusion with a dark palette, calm greys that keep
// photos the brightest thing on screen, and one accent colour for focus.

#include <QColor>
#include <QString>

class QApplication;

namespace lumivale::ui {

/// Fusion style, the dark palette and the few style-sheet rules the panels
/// share. Call once, before the first window is made.
void applyDarkTheme(QApplication& app);

namespace theme {
inline const QColor window{0x26, 0x26, 0x28};
inline const QColor panel{0x2e, 0x2e, 0x31};
inline const QColor gridBackground{0x1c, 0x1c, 0x1e};
inline const QColor cell{0x2c, 0x2c, 0x2f};
inline const QColor cellSelected{0x4a, 0x4a, 0x50};
inline const QColor text{0xde, 0xde, 0xe0};
inline const QColor dimText{0x96, 0x96, 0x9c};
inline const QColor accent{0x4d, 0x9c, 0xf0};
inline const QColor reject{0xe0, 0x55, 0x4d};
}  // namespace theme

/// The swatch of a colour label key ("red" ... "purple"); invalid for an
/// unknown key.
QColor labelColor(const QString& key);

}  // namespace lumivale::ui
