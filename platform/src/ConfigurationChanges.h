#pragma once

// Not installed: shared by the platform libraries only.
namespace norva_config {
// How often the settings have changed so far (a file read, a setter). A value
// read after this number was taken is at least as new as the number.
unsigned long Changes();
}  // namespace norva_config
