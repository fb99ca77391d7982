// ServiceFixture: a runtime folder and a main bundle of the test's own, so that it may serve names nobody else sees.
// The environment and the bundle root are put back afterwards.
#pragma once

#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

class ServiceFixture : public testing::Test {
public:
    static constexpr const char* kService = "com.example.test.service";

protected:
    ServiceFixture();
    ~ServiceFixture() override;

    const std::string& RuntimeFolder() const { return runtime; }
    std::string SocketPath() const { return runtime + "/" + kService; }

    // A plain socket connected to the service, for sending what no client would. The caller closes it.
    int ConnectRaw() const;
    // Serves the main queue until the condition holds; a failure of the test when it doesn't within 10 s.
    static void PumpUntil(const std::function<bool()>& condition, const char* what);
    static size_t OpenDescriptors();

private:
    TempFolder folder;
    std::string runtime;
    std::string oldRuntime;
};
