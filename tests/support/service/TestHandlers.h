#pragma once

namespace quorbel {

/// Makes handlers known that tests configure like the service's own:
/// - handler files of kind "SQL" and "SEARCH" answer with kind, file name, user and parameters as text;
/// - handler files of kind "FAIL" throw;
/// - the location "TestAuthenticate" takes the caller's level from the request header X-Level (1, 2 or 3),
/// the
///   identity from X-User and the cookie from Cookie;
/// - the location "TestPost" answers POST requests alone.
void RegisterTestHandlers();

}  // namespace quorbel
