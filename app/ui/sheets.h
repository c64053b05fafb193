#pragma once
// The model's sheets as window-modal dialogs: export, copy settings, save
// preset, new collection, keywords and the end of an import. Each shows the
// model's current values and, when accepted, hands its choices to one
// operation of the model.

#include <QDialog>
#include <map>
#include <set>

#include "app/model/vesk_model.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QSlider;
class QSpinBox;

namespace lumivale::ui {

/// The dialog of `sheet`, not yet shown; null when the model has nothing
/// for it (no photo for the export sheet, no import for its summary).
QDialog* makeSheet(app::VeskSheet sheet, app::VeskModel& model, QWidget* parent);

/// Twelve check boxes, one per settings group, with All and None.
class GroupChooser : public QWidget {
  Q_OBJECT
 public:
  explicit GroupChooser(const std::set<SettingsGroup>& chosen, QWidget* parent = nullptr);
  std::set<SettingsGroup> groups() const;
  void setGroups(const std::set<SettingsGroup>& groups);

 private:
  std::map<SettingsGroup, QCheckBox*> boxes_;
};

class ExportSheet : public QDialog {
  Q_OBJECT
 public:
  ExportSheet(app::VeskModel& model, QWidget* parent = nullptr);
  /// The options as the sheet's controls show them.
  ExportOptions options() const;
  /// Saves the options in the model and exports the selected photos into the
  /// chosen folder; asks for a folder first when none is chosen.
  void startExport();

 private:
  void showOptions(const ExportOptions& o);
  void refreshEnabled();
  void showProgress();
  void finish(const app::ExportSummary& summary);

  app::VeskModel& model_;
  std::vector<std::int64_t> ids_;
  QComboBox* format_;
  QSlider* quality_;
  QLabel* qualityValue_;
  QCheckBox* tiff16_;
  QComboBox* sizeMode_;
  QSpinBox* sizeValue_;
  QCheckBox* dontEnlarge_;
  QComboBox* colorSpace_;
  QComboBox* sharpening_;
  QComboBox* sharpenLevel_;
  QCheckBox* watermarkOn_;
  QLineEdit* watermarkText_;
  QDoubleSpinBox* watermarkSize_;
  QSlider* watermarkOpacity_;
  QComboBox* watermarkPosition_;
  QCheckBox* watermarkDark_;
  QComboBox* metadata_;
  QLineEdit* copyright_;
  QComboBox* naming_;
  QLineEdit* suffix_;
  QLineEdit* customName_;
  QLineEdit* folder_;
  QProgressBar* progress_;
  QListWidget* results_;
  QPushButton* exportButton_;
  QPushButton* closeButton_;
};

class CopySettingsSheet : public QDialog {
  Q_OBJECT
 public:
  CopySettingsSheet(app::VeskModel& model, QWidget* parent = nullptr);
  GroupChooser* chooser() const { return chooser_; }

 private:
  GroupChooser* chooser_;
};

class SavePresetSheet : public QDialog {
  Q_OBJECT
 public:
  SavePresetSheet(app::VeskModel& model, QWidget* parent = nullptr);
  GroupChooser* chooser() const { return chooser_; }
  QLineEdit* nameField() const { return name_; }

 private:
  GroupChooser* chooser_;
  QLineEdit* name_;
};

}  // namespace lumivale::ui
