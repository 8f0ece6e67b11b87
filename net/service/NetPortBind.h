// Where hosts have always included NetPortBind from.
#pragma once

#include "net/ports/NetPortBind.h"
