#include "float_slider.h"
