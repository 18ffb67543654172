#ifndef VOINET_SERVER_REPLACEFILE_H
#define VOINET_SERVER_REPLACEFILE_H

#include <string>

namespace voinetserver {

/// Puts a file that everybody may read in place, complete at once: it is written beside its place
/// and renamed. False, with the reason in errno, when that fails; what was there before stays then.
bool replaceFile(const std::string& file, const std::string& text);

}  // namespace voinetserver

#endif
