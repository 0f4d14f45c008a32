#include "literal_reference.h"
