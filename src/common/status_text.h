// What a status code means, in a few words, for messages that name the cause of a failure.
#pragma once

#include <string>

#include "common/status.h"

// The cause behind `status`: "a subtitle sample is malformed (-12742)", an operating-system
// error's text with its number ("No space left on device (errno 28)"), or just the code.
std::string DescribeStatus(Status status);
