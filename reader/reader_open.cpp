#include "reader/reader_handle.h"
