#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Precompiled.h"
