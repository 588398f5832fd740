#include "tests/sandbox.h"
