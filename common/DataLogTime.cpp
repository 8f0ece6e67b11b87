#include "common/DataLogTime.h"

namespace kqlib {

DataLogTime::DataLogTime()
    : DataLog(KIND::TIME)
{
}

} // namespace kqlib
