#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/Precompiled.h"
