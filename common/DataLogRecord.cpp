#include "common/DataLogRecord.h"

namespace kqlib {

DataLogRecord::DataLogRecord()
    : DataLog(KIND::RECORD)
{
}

} // namespace kqlib
