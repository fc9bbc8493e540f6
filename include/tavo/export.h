// Marks what the library hands out; everything else stays hidden.
#pragma once

/// Visible outside of the shared library.
#define TAVO_API __attribute__((visibility("default")))
