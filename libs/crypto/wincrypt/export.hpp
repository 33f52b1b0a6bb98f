#pragma once

/// Marks what the plug-in offers to the framework; everything else of its shared library stays hidden.
#define WINCRYPT_EXPORT __attribute__((visibility("default")))
