#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <cpprest/http_listener.h>
#include <cpprest/streams.h>

#include "platform/Precompiled.h"
