#pragma once

// The HTTP library takes longer to compile than all of our code together.
#include <cpprest/http_listener.h>
#include <cpprest/streams.h>

#include "platform/Precompiled.h"
