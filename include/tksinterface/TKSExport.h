#pragma once

/// Marks what the library exports; everything else is hidden.
#define TKS_EXPORT __attribute__((visibility("default")))
