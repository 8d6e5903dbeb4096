// The host services library: where the installation is.
#pragma once

/// The installation root: the folder above bin/, or the value of the environment variable
/// VARNIX_ROOT where it is set and not empty. NUL-terminated, valid for the life of the process.
const char* svVarnixRoot();
