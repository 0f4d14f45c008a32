#include "data.h"

namespace clarovi::autosearch {

Data& Data::getInstance() {
    // Made once, thread-safely, on the first call; lives until the process ends.
    static Data instance;
    return instance;
}

} // namespace clarovi::autosearch
