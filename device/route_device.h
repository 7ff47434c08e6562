// The encoder unit's hardware route: asks the route driver to hand the unit's transport
// stream to user space, keeps asking when the route is lost, and takes it down at the
// end. The stream itself does not pass through here; file_input_t reads ingressPath().
#pragma once

#include <string>

// Threads: constructor and destructor on the main thread, ensureRoute() on the API
//          thread, which has ended before the destructor runs. No state changes.
// Owner:   main(). ApiHandler borrows a pointer.
class RouteDevice {
public:
    // Sends the route-up command; throws as sendRouteUp() does.
    explicit RouteDevice(int number);
    ~RouteDevice();  // sends the route-down command
    RouteDevice(const RouteDevice &) = delete;
    RouteDevice &operator=(const RouteDevice &) = delete;

    // The device that delivers the stream once the route is up.
    std::string ingressPath() const;

    // Sends the route-up command again unless the driver's report shows the route.
    void ensureRoute() const;

    // One command, one write. A unit without the driver is no error, only a line on
    // stdout; one that keeps silent for a second counts as that. Throws the int 1 if the driver
    // took only a part.
    void sendRouteUp() const;

private:
    const int route_number;
};
