#include "cli_options.h"
