// The mark of symbols that leave a library.
#pragma once

/// Everything is hidden by default; what another library uses is marked with this.
#define NOX_EXPORT __attribute__((visibility("default")))
