#pragma once

#include "config/HostConfiguration.h"

namespace quorbel {

/// The part of a host's configuration that a reload replaces while its listener stays open. Immutable: a
/// request takes a share of it and keeps that while its handler runs, so that a reload never waits for a
/// handler.
struct CListenerConfiguration {
    TextMap directoryMappings;
    std::map<AccessLevel, TextMap> webApplications;
    TextMap namedValues;
    std::uint64_t rangeCap = 0;
};

}  // namespace quorbel
