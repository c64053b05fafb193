#pragma once
// The desktop program from its window system to its end: the dark theme,
// the library (or the alert when it cannot be opened), the model and the
// window.

#include "app/startup.h"

namespace lumivale::ui {

/// The alert's message when the library cannot be opened.
inline constexpr const char* cannotOpenLibrary = "KUVO Lumivale could not open its library";

/// Runs the window until it is closed; the process's exit status. Reads
/// LUMIVALE_SCREENSHOTS (a folder) to run the screenshot tour instead of
/// waiting for the user.
int runApplication(int& argc, char** argv, const app::StartupOptions& options);

}  // namespace lumivale::ui
