#include "fftw_plans.h"
