#include "runner.h"

#include "ftpfaults.h"
#include "httpfaults.h"

namespace tessaro_com::pkm::voInet::faults {

std::string kindOf(const Scenario& scenario) {
    switch (scenario.protocol) {
        case local:
            return "local and mounted directories";
        case ftp:
            return ftpFaults().at(scenario.fault).kind;
        default:
            return httpFaults().at(scenario.fault).kind;
    }
}

Verdict run(const Scenario& scenario) {
    switch (scenario.protocol) {
        case local:
            return runLocalCopy(scenario);
        case exchange:
            return runExchange(scenario);
        default:
            return runDownload(scenario);
    }
}

}  // namespace tessaro_com::pkm::voInet::faults
