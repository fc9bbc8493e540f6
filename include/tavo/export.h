// Marks what the library hands out; everything else stays hidden.
#pragma once

#define TAVO_API __attribute__((visibility("default")))
