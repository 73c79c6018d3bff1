#pragma once

#include <boost/asio.hpp>
#include <string>
#include <vector>

namespace quorbel {

/// The subcommands of bench_load. Each prints its result on standard output and gives the program's exit
/// code; wrong arguments and a service that does not play along throw std::exception.
using Arguments = std::vector<std::string>;

/// idle URL TARGET COUNT: opens COUNT connections, makes one request on each and keeps them until the end of
/// standard input; prints "ready" when all are open. 1 when any of them was closed by the service.
int RunIdle(const Arguments& arguments);

/// crowd URL SMALL LARGE COUNT: COUNT connections that trickle heads, as many that trickle the bodies of POST
/// SMALL, and as many that ask for LARGE and do not read, until the end of standard input; those that the
/// service cuts are opened again. Prints "ready" when each was open once, and at the end how many were.
int RunCrowd(const Arguments& arguments);

/// ask URL TARGET BYTES CONNECTIONS SECONDS: requests one after the other on each connection; prints their
/// number and the median and 99th percentile in microseconds. Throws when a reply is not 200 with so many
/// bytes.
int RunAsk(const Arguments& arguments);

/// soak SITE SECONDS CONNECTIONS URL...: mixed requests for the files 1k, 100k, 1m of the folder SITE, and
/// POST form, over so many connections to each URL, every reply compared with the files. 1 when a request
/// failed.
int RunSoak(const Arguments& arguments);

/// An argument as a positive number; throws when it is none.
int Number(const std::string& argument);

/// Runs a task on the context; what it throws leaves the context's run().
void Spawn(boost::asio::io_context& context, boost::asio::awaitable<void> task);

/// Waits for the end of standard input, which must be a pipe or a terminal.
boost::asio::awaitable<void> WaitForEndOfInput();

/// The value that `share` of the samples, which are sorted first, do not exceed (nearest rank); 0 for none.
double Percentile(std::vector<double>& samples, double share);

}  // namespace quorbel
