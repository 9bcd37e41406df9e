#pragma once

#include <boost/shared_ptr.hpp>

#include "foundation/io/request/async_request.h"

namespace io::request {

/// Takes requests and has them processed on threads of its own.
class async_request_processor_t {
public:
    async_request_processor_t() = default;
    virtual ~async_request_processor_t() = default;
    async_request_processor_t(const async_request_processor_t&) = delete;
    async_request_processor_t& operator=(const async_request_processor_t&) = delete;

    /// Returns at once; callable from any thread. A request that is posted after the end is never processed.
    virtual void post(const boost::shared_ptr<async_request_t>& request) = 0;
    /// Ends the processing. What hasn't begun by then is never processed.
    virtual void stop() = 0;
};

}  // namespace io::request
