#include "Passing.h"

#include <algorithm>
#include <iterator>

namespace platform {

bool IsPassing(int error) {
    static constexpr int passing[] = {ETXTBSY, EAGAIN, ENOMEM, EMFILE, ENFILE, ENOBUFS, EIO, EINTR};
    return std::find(std::begin(passing), std::end(passing), error) != std::end(passing);
}

}  // namespace platform
