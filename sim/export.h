#pragma once

#define TAVO_SIM_API __attribute__((visibility("default")))
