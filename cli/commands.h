#pragma once
// Each area of the CLI adds its commands to the table here.

#include <vector>

#include "cli/cli.h"

namespace lumivale::cli {

void addLibraryCommands(std::vector<Command>& table);
void addImportCommands(std::vector<Command>& table);
void addOrganizeCommands(std::vector<Command>& table);
void addLutCommands(std::vector<Command>& table);
void addRenderCommands(std::vector<Command>& table);
void addMaskCommands(std::vector<Command>& table);
void addEditCommands(std::vector<Command>& table);
void addBackupCommands(std::vector<Command>& table);
void addPreviewCommands(std::vector<Command>& table);
void addExportCommands(std::vector<Command>& table);
void addThumbnailCommands(std::vector<Command>& table);

}  // namespace lumivale::cli
