#pragma once

// Not installed: shared by the platform libraries only.
namespace norva_config {
// How often the settings have changed so far (a file read, a setter). A value
// read after this number was taken is at least as new as the number. Weak, so
// that the logger still loads beside a configuration library of the host's
// own that lacks it (the address is then null).
__attribute__((weak)) unsigned long Changes();
}  // namespace norva_config
