#pragma once

namespace io::request {

/// A piece of work for a pool of threads. It tells its own outcome to whoever waits for it.
class async_request_t {
public:
    async_request_t() = default;
    virtual ~async_request_t() = default;
    async_request_t(const async_request_t&) = delete;
    async_request_t& operator=(const async_request_t&) = delete;

    /// Runs once, on a thread of the pool. An exception that comes out of it ends the whole pool.
    virtual void process() = 0;
};

}  // namespace io::request
