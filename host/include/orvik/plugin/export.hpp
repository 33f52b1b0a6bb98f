#pragma once

/// Marks what a shared library of the framework, or a plug-in, offers to others; everything else stays hidden.
#define ORVIK_EXPORT __attribute__((visibility("default")))
