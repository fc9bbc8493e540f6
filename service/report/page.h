// How every page begins: by this an earlier page is told from any other file.
#pragma once

namespace tavo {

inline constexpr const char* kPageHead =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<meta name=\"generator\" "
    "content=\"tavo-util\">\n";

}  // namespace tavo
