// What the program says about its own command line, on standard error.
#pragma once

namespace sondex {

// For "-h": all shapes of the command, and the banner.
void printUsage(const char *program);

// For "-h" as a report's target. Kept: "-h" is answered before it gets there.
void printReportUsage(const char *program);

// For an unknown report word; without the banner.
void printReportWords(const char *program);

}  // namespace sondex
