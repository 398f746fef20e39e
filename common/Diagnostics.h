#pragma once

namespace GenICam {
namespace Client {
namespace Helper {

// The operator's diagnostics (--verbose): one line per event on standard error, never on standard
// output. Off by default; while off a call costs one test of a flag.
void SetDiagnostics(bool enabled);
bool IsDiagnostics();

// Writes "[  s.mmm] " (seconds since the process started), the formatted text and a line end, in
// one write so that lines of several threads never interleave.
void Diag(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace Helper
} // namespace Client
} // namespace GenICam
