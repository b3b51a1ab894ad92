// The run-time version query: the macros as they were when the library was built.
#include "tarnxml/tarnxml_version.h"

namespace tarn {

const char* versionString() noexcept { return TARNXML_VERSION_STRING; }

int versionNumber() noexcept { return TARNXML_VERSION_NUMBER; }

} // namespace tarn
