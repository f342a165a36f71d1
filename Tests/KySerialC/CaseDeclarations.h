#ifndef KYTEST_CASEDECLARATIONS_H
#define KYTEST_CASEDECLARATIONS_H

#define KY_CASE(aSuite, aName) void aSuite##_##aName(void);
#include "Cases.h"
#undef KY_CASE

#endif
