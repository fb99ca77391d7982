// HelperStarter: a connection to the helper, which is started first when none serves. Main thread only.
#pragma once

#include "HelperClient.h"

#include <cstdint>
#include <memory>
#include <string>

namespace tools {

class HelperStarter {
public:
    // `bundle`: the helper's bundle, started where no systemd user unit is installed for it.
    explicit HelperStarter(std::string bundle);

    // Null when no helper answers within `timeoutMs`. What is done about it is said on standard output.
    std::unique_ptr<HelperClient> Connect(uint32_t timeoutMs) const;

    // Starts it without a look at who serves; what was done, as a sentence, "" when it can't be started.
    std::string Start() const;

private:
    std::string helperBundle;
};

}  // namespace tools
