#include "app/ui/help.h"

#include <QDateTime>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QTextBrowser>
#include <QVBoxLayout>

#include "app/model/vesk_model.h"

namespace lumivale::ui {

namespace {

QString localTime(double secondsSince1970) {
  return QLocale().toString(QDateTime::fromSecsSinceEpoch(qint64(secondsSince1970)), QLocale::ShortFormat);
}

}  // namespace

QString backupSummary(const app::BackupState& state) {
  QStringList lines;
  if (state.last) {
    lines << QObject::tr("Last backup: %1 (%2)")
                 .arg(localTime(state.last->created), QString::fromStdString(state.last->name));
  } else {
    lines << QObject::tr("No backup of the catalog yet");
  }
  lines << QObject::tr("Backups kept: %1").arg(state.backups);
  lines << (state.lastCheck ? QObject::tr("Catalog last checked: %1").arg(localTime(*state.lastCheck))
                            : QObject::tr("The catalog has not been checked yet"));
  return lines.join(QLatin1Char('\n'));
}

const std::vector<std::pair<QString, QString>>& helpTopics() {
  static const std::vector<std::pair<QString, QString>> topics = {
      {QObject::tr("Importing photos"),
       QObject::tr(
           "<p>Choose <b>File ▸ Import Folder…</b> (Ctrl+Shift+I) and pick a folder. Every photo in it "
           "and in its subfolders is added to the library; RAW files and JPEG, HEIC, TIFF and PNG "
           "images are read.</p><p>The photos stay where they are. The library only remembers where "
           "they are, and your ratings and edits; the files themselves are never changed. Importing "
           "the same folder again adds only the photos that are new.</p>")},
      {QObject::tr("Rating, flagging and labels"),
       QObject::tr("<p>Select photos in the grid: click one, Ctrl-click to add or remove one, Shift-click to "
                   "select a run.</p><ul><li><b>0</b>–<b>5</b> set the star rating</li>"
                   "<li><b>P</b> picks, <b>X</b> rejects, <b>U</b> removes the flag</li>"
                   "<li><b>6</b> red, <b>7</b> yellow, <b>8</b> green, <b>9</b> blue label; pressing the key "
                   "of a label every selected photo already has removes it</li>"
                   "<li>← and → move to the previous and next photo</li></ul>")},
      {QObject::tr("Finding photos"),
       QObject::tr("<p>The catalog panel on the left shows all photographs, the edited ones, each imported "
                   "folder, your collections and your keywords. Above the grid, choose a minimum rating, a "
                   "flag filter and colour labels, and sort by date, name, rating or size.</p><p>The search "
                   "field takes words and terms such as <code>rating:&gt;=3</code>, <code>flag:pick</code>, "
                   "<code>label:red</code>, <code>iso:&gt;800</code>, <code>camera:canon</code> and "
                   "<code>keyword:sky</code>.</p>")},
      {QObject::tr("Keywords and collections"),
       QObject::tr("<p>Type keywords in the info panel on the right, or choose <b>Photo ▸ Keywords…</b> "
                   "(Ctrl+K), separated by commas. Double-click a keyword in the info panel to remove it.</p>"
                   "<p>Make a collection with <b>Photo ▸ New Collection…</b> (Ctrl+N), then drag photos from "
                   "the grid onto it. Right-click a collection to rename or delete it; deleting a collection "
                   "never removes its photos.</p>")},
      {QObject::tr("Developing a photo"),
       QObject::tr("<p>Double-click a photo or press <b>D</b> to open it in Develop; <b>G</b> returns to the "
                   "grid. The panels on the right go from the overall look to the details: presets, white "
                   "balance and light, presence, curves, colour mixer, colour grading, detail, lens, "
                   "effects, crop, masks, history and snapshots.</p><p>Drag a slider to change a setting; "
                   "one drag is one step in the history. Double-click a slider to put it back. "
                   "<b>Ctrl+Z</b> undoes, <b>Ctrl+Shift+Z</b> redoes, and the history list jumps to any "
                   "step. Edits are never written into the photo file.</p>")},
      {QObject::tr("Crop and straighten"),
       QObject::tr("<p>Choose the crop tool in the Crop &amp; Straighten panel or in the toolbar. Drag the "
                   "corners or edges of the frame, or drag inside it to move it. Pick an aspect ratio from "
                   "the list, and use the Straighten slider to level the horizon.</p>")},
      {QObject::tr("Local adjustments with masks"),
       QObject::tr("<p>In the Masks panel, add a brush, a linear or a radial gradient, or let the program "
                   "select the subject, the sky or people. Each mask has its own exposure, contrast, "
                   "highlights, shadows, white balance, saturation and sharpness.</p><p>With the brush, "
                   "paint on the photo; the circle shows the brush size. Turn on Erase to take coverage "
                   "away. Gradients have handles you drag on the photo. Press <b>O</b> to see the selected "
                   "mask tinted over the photo.</p>")},
      {QObject::tr("Comparing before and after"),
       QObject::tr("<p>Press <b>\\</b> to go from the edited photo to side by side, to a split view, and "
                   "back. <b>Z</b> shows the photo at 1:1; drag to look around. <b>J</b> marks clipped "
                   "highlights in red and crushed shadows in blue.</p>")},
      {QObject::tr("Copying settings and presets"),
       QObject::tr(
           "<p><b>Edit ▸ Copy Settings…</b> chooses which groups of settings to copy from the current "
           "photo; <b>Paste Settings</b> puts them on every selected photo, and <b>Sync Settings</b> "
           "copies them from the current photo to the rest of the selection. Crop and masks stay "
           "with each photo unless you choose them.</p><p>Looks and your own presets are in the "
           "Presets panel; <b>Save Preset…</b> keeps the current settings as a preset.</p>")},
      {QObject::tr("Exporting"),
       QObject::tr("<p>Select photos and choose <b>File ▸ Export…</b> (Ctrl+Shift+E). Pick the format and "
                   "quality, the size, the colour space, output sharpening, an optional text watermark, "
                   "what metadata to keep and how files are named, then a folder. Existing files are never "
                   "replaced: a new name gets a number instead.</p>")},
  };
  return topics;
}

QString thirdPartyNotices() {
  return QObject::tr(
      "<p>KUVO Lumivale is built on these libraries, each under its own licence:</p><ul>"
      "<li>Qt 6 (LGPL-3)</li><li>SQLite (public domain)</li><li>libvips (LGPL-2.1+)</li>"
      "<li>LibRaw (LGPL-2.1 or CDDL-1.0)</li><li>lensfun (LGPL-3; database CC-BY-SA-3.0)</li>"
      "<li>Exiv2 (GPL-2.0+)</li><li>Little CMS (MIT)</li><li>libheif (LGPL-3) with x265 (GPL-2.0+)</li>"
      "<li>libjpeg-turbo (BSD-style, IJG)</li><li>libpng (libpng licence)</li><li>libtiff (libtiff "
      "licence)</li>"
      "<li>pango (LGPL-2+) and cairo (LGPL-2.1 or MPL-1.1)</li><li>oneTBB (Apache-2.0)</li>"
      "<li>nlohmann/json (MIT)</li><li>{fmt} (MIT)</li><li>Highway (Apache-2.0)</li>"
      "<li>ICU (Unicode licence)</li><li>OpenCV (Apache-2.0)</li></ul>"
      "<p>Subject and people masks use the ISNet salient-object model (Qin et al., “Highly Accurate "
      "Dichotomous Image Segmentation”), whose weights are MIT-licensed. Face and figure detection use "
      "OpenCV's Haar cascades and HOG people detector (Intel licence agreement, BSD-style).</p>");
}

void showHelp(QWidget* parent) {
  auto* dialog = new QDialog(parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowTitle(QObject::tr("KUVO Lumivale Help"));
  auto* layout = new QHBoxLayout(dialog);
  auto* list = new QListWidget;
  list->setMaximumWidth(230);
  auto* page = new QTextBrowser;
  page->setOpenExternalLinks(false);
  for (const auto& [title, body] : helpTopics()) list->addItem(title);
  QObject::connect(list, &QListWidget::currentRowChanged, page, [page](int row) {
    if (row < 0 || row >= int(helpTopics().size())) return;
    const auto& [title, body] = helpTopics()[std::size_t(row)];
    page->setHtml(QStringLiteral("<h2>%1</h2>%2").arg(title.toHtmlEscaped(), body));
  });
  layout->addWidget(list);
  layout->addWidget(page, 1);
  list->setCurrentRow(0);
  dialog->resize(820, 520);
  dialog->show();
}

void showAbout(QWidget* parent, app::VeskModel& model) {
  auto* dialog = new QDialog(parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowTitle(QObject::tr("About KUVO Lumivale"));
  auto* layout = new QVBoxLayout(dialog);
  auto* name = new QLabel(QStringLiteral("KUVO Lumivale"));
  QFont f = name->font();
  f.setPointSizeF(f.pointSizeF() * 1.6);
  f.setBold(true);
  name->setFont(f);
  layout->addWidget(name);
  layout->addWidget(new QLabel(QObject::tr("Version %1").arg(QStringLiteral(LUMIVALE_VERSION))));
  layout->addWidget(
      new QLabel(QObject::tr("A photo library and RAW developer. Your originals are never changed.")));
  model.readBackupState();
  auto* backups = new QLabel(backupSummary(model.backupState()));
  backups->setObjectName(QStringLiteral("backupState"));
  backups->setTextInteractionFlags(Qt::TextSelectableByMouse);
  layout->addWidget(backups);
  auto* notices = new QTextBrowser;
  notices->setHtml(thirdPartyNotices());
  layout->addWidget(notices, 1);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
  layout->addWidget(buttons);
  dialog->resize(560, 480);
  dialog->show();
}

}  // namespace lumivale::ui
