#ifndef VOINET_TESTS_TORTURE_SUPPORT_WORKPLACE_H
#define VOINET_TESTS_TORTURE_SUPPORT_WORKPLACE_H

#include "support/temporarydirectory.h"

#include <string>
#include <string_view>
#include <vector>

namespace tessaro_com::pkm::voInet::torture {

/// The directory of a scene, empty at its start and at its end. It is the same one for all scenes:
/// the host library remembers the directories that it has been in, which takes memory for a new
/// one.
class Workplace {
  public:
    Workplace() = default;
    ~Workplace();

    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    std::string path(std::string_view name) const { return directory().path(name); }
    std::vector<std::string> entries() const { return directory().entries(); }
    std::string makeFile(std::string_view name, std::string_view content) const {
        return directory().makeFile(name, content);
    }

  private:
    static const wire::TemporaryDirectory& directory();
};

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_WORKPLACE_H
