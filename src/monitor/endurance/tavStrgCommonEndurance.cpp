#include "monitor/endurance/tavStrgCommonEndurance.h"

#include "provider/runtime/tavCommonTrace.h"

// The table file is not read yet: no drive is known to report its endurance.
void strgGetInfFile()
{
    TRACE(kDetail, "_IN_");
    TRACE(kDetail, "_OUT_");
}
