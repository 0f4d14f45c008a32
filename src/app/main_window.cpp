#include "main_window.h"
