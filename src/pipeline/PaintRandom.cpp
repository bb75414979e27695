#include "pipeline/PaintRandom.h"

#include <cstdlib>

PaintRandom::PaintRandom() : state_(static_cast<std::uint32_t>(std::rand())) {}
