#pragma once
// tarn::XmlDiagnostic: one error or warning that libxml2 reported while parsing or reading, as
// XmlDocument::GetDiagnostics and XmlReader::diagnostics hand them out.
//
// Collection
//   Every parse collects its own list through a structured error handler set on its own parser
//   context; libxml2's process-wide handlers are never set or used, so two threads that parse
//   bad documents at the same time each see only their own diagnostics, and nothing is printed.
//   A structured handler that the host set on the parsing thread (xmlSetStructuredErrorFunc) is
//   still handed each error after it is collected, as before these lists existed.
//   A list holds at most kMaxDiagnostics entries; later reports of the same parse are dropped.
//
// Threads and errors
//   Plain values, copied freely. FormatDiagnostic throws only std::bad_alloc.
#include <cstddef>
#include <string>
#include <vector>

#include "tarnxml/tarnxml_export.h"

namespace tarn {

struct XmlDiagnostic {
    enum Level : int { Warning = 1, Error = 2, Fatal = 3 }; // libxml2's xmlErrorLevel values
    Level level = Error;
    int line = 0;        // 1-based, 0 when libxml2 gave none
    int column = 0;      // 1-based, 0 when libxml2 gave none
    int code = 0;        // libxml2's xmlParserErrors code
    std::string message; // libxml2's message, trailing newline and blanks trimmed
    std::string source;  // the caller-supplied input name ("" when none was given)
};

typedef std::vector<XmlDiagnostic> XmlDiagnostics;

// The most entries one parse (or one reader since its last open) collects.
constexpr std::size_t kMaxDiagnostics = 10000;

// "SOURCE:LINE:COLUMN: message"; parts that are empty or 0 are left out with their colon, as in
// "SOURCE: message", "LINE:COLUMN: message" or just "message".
TARNXML_API std::string FormatDiagnostic(const XmlDiagnostic& diagnostic);

} // namespace tarn
