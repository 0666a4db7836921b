#include <cstdint>
#include <cstdlib>

#include <tksinterface/TKSVersion.h>
#include <tksinterface/c/tksinterface.h>

// Versions, and memory of the caller.

std::int32_t tks_c_version() { return TKS_C_VERSION_MAJOR * 1000 + TKS_C_VERSION_MINOR; }

std::int32_t tks_version() { return TKSVersion::number(); }

const char* tks_version_text() { return TKSVersion::text().data(); }

void tks_free(char* text) { std::free(text); }
