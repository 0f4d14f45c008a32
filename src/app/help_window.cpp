#include "help_window.h"
