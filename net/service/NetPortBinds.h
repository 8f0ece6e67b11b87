// Where hosts have always included NetPortBinds from.
#pragma once

#include "net/ports/NetPortBinds.h"
