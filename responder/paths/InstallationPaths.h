#pragma once

#include <string>

/// Where the product is installed, judged by the running executable. No state; any thread.
namespace ZNORBRESPONDER {

/// The directory of the daemon's own executable, without a separator at its end, followed by "/" and the
/// subdirectory unless that is empty. Without a proc file system it is "/opt/zn/<product>/bin". An
/// executable link that cannot be read gives an empty directory.
///
/// The link is cut at 80 bytes on purpose: when the cut goes through a directory's name, the result is the
/// directory above it, and nothing of the product is found there.
std::string getBinaryPath(const std::string& product, const std::string& subdirectory);

/// The product's HTML directory: the value of the environment variable "ZNORB_HTML_PATH", or, when that
/// is unset or empty, "HTML/<variant>" beside the executable's directory. The sub path, unless empty,
/// follows with one "/" between.
std::string getHtmlPath(const std::string& product, const std::string& subPath);

} // namespace ZNORBRESPONDER
