#include "ProcessMemory.h"

void ProcessMemory::keepSmall() {}
