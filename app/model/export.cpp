// Export of photos from the model: the options are the user's choice, the
// batch runs off the main thread, and progress and the summary come back
// to it.

#include "app/model/model_impl.h"
#include "app/model/vesk_model.h"
#include "engine/export/export_pipeline.h"

namespace lumivale::app {

void VeskModel::exportPhotos(const std::vector<std::int64_t>& ids, const std::filesystem::path& folder,
                             std::function<void(const ExportSummary&)> completion) {
  if (ids.empty() || exportProgress_) return;
  ExportOptions options = exportOptions_;
  options.folderPath = folder.string();
  setExportOptions(options);
  try {
    options.save(impl_->defaults);
  } catch (const std::exception& e) {
    setStatus(QString::fromStdString(e.what()));
  }
  exportProgress_ = std::pair(0, int(ids.size()));
  emit exportProgressChanged();
  auto library = library_;
  impl_->exportPool.run([this, library, ids, folder, options, completion = std::move(completion)] {
    const std::vector<ExportJob> jobs = Exporter::exportJobs(*library, ids);
    PhotoRenderer renderer;
    const std::vector<ExportResult> results =
        Exporter::exportBatch(jobs, options, renderer, folder, [this](int done, int total) {
          toMain([this, done, total] {
            exportProgress_ = std::pair(done, total);
            emit exportProgressChanged();
          });
        });
    ExportSummary summary;
    for (const ExportResult& result : results) {
      if (result.written()) {
        ++summary.written;
        summary.files.push_back(result.file);
      } else if (result.error) {
        summary.errors.push_back(result.error->description());
      }
    }
    if (jobs.size() < ids.size()) summary.errors.emplace_back("Some photos are no longer in the library");
    toMain([this, summary, completion] {
      exportProgress_.reset();
      emit exportProgressChanged();
      QString text =
          "Exported " + QString::number(summary.written) + " photo" + (summary.written == 1 ? "" : "s");
      if (!summary.errors.empty()) text += " · " + QString::fromStdString(summary.errors.front());
      setStatus(text);
      if (completion) completion(summary);
    });
  });
}

}  // namespace lumivale::app
