#ifndef KVECOMN_KERNELWALK_H
#define KVECOMN_KERNELWALK_H

#include "descriptor.h"

#include <string>

namespace kvecomn {

/// Opens what a path leads to when no symbolic link is on the way or at its end: the kernel follows
/// the whole path in one call. A closed descriptor with the reason in errno otherwise, ELOOP for a
/// link, ENOSYS on a kernel that cannot promise this. Nothing is ever made.
///
/// @param flags  as for open; O_CLOEXEC is added.
Descriptor openWithoutLinks(const std::string& path, int flags) noexcept;

}  // namespace kvecomn

#endif  // KVECOMN_KERNELWALK_H
