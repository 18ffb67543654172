#ifndef VOINET_TESTS_FAULTS_NETWORK_STAGE_H
#define VOINET_TESTS_FAULTS_NETWORK_STAGE_H

#include "endpoints.h"
#include "scenario.h"
#include "support/recordingsink.h"
#include "support/temporarydirectory.h"
#include "support/transfer.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::faults {

/// The directory in which a case takes place: empty at its beginning and at its end, the same for
/// all cases, and removed when the program ends.
class Workplace {
  public:
    Workplace() { clear(); }
    ~Workplace() { clear(); }

    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    std::string path(const std::string& name) const { return directory().path(name); }
    std::vector<std::string> entries() const { return directory().entries(); }
    std::string makeFile(const std::string& name, const std::string& content) const {
        return directory().makeFile(name, content);
    }

  private:
    static const wire::TemporaryDirectory& directory();
    static void clear();
};

/// Nothing when there is no such file.
std::optional<std::string> contentOf(const std::string& path);

/// The local file of a case before the transfer; nothing: there is none.
std::optional<std::string> localContent(const Scenario& scenario, const std::string& file);

/// How many bytes the sink lets pass; nothing: all.
std::optional<std::size_t> stopOf(const Scenario& scenario);

/// What a difference is reported as: its size and where it begins.
std::string described(const std::optional<std::string>& content,
                      const std::optional<std::string>& expected);

/// The configured host forms of a case: those with the fault first, then one that is well.
template <class MakeBad, class MakeWell>
std::array<EndpointPtr, 3> makeForms(Forms forms, MakeBad makeBad, MakeWell makeWell) {
    std::array<EndpointPtr, 3> made;
    switch (forms) {
        case lastForm:
            made[2] = makeBad();
            break;
        case onlyFirst:
            made[0] = makeBad();
            break;
        case firstOfTwo:
            made[0] = makeBad();
            made[1] = makeWell();
            break;
        default:
            made[0] = makeBad();
            made[1] = makeBad();
            made[2] = makeWell();
    }
    return made;
}

/// The settings that name these endpoints. The second form's name has a dead address before the one
/// that is alive, where the second endpoint listens.
wire::TransferSettings settingsFor(const std::array<EndpointPtr, 3>& forms);

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_STAGE_H
