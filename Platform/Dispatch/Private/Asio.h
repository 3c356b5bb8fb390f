#pragma once

// asio allocates by `aligned_alloc` where a header of the standard library came before it and by `operator new` where
// none did: memory of one source would be freed in the other's way.
#define ASIO_DISABLE_STD_ALIGNED_ALLOC 1
#include <asio.hpp>
