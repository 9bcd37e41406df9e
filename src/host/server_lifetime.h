#pragma once

/// Ends the serving: takes no more calls, empties `gServiceContext`, logs the end. Calls in progress are not waited for.
/// Throws nothing.
void StopTapeServer();
