#include "guide/PathParser.h"
