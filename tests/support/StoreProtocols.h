// StoreProtocols: how the schedule store's file calls reach the disk: as they are, or with one step of the protocol
// broken. The broken ones are there to be found out: a harness that accepts them proves nothing.
#pragma once

#include "FileCalls.h"

#include <functional>
#include <memory>

struct StoreProtocol {
    std::function<std::unique_ptr<platform::FileCalls>(platform::FileCalls& disk)> calls;
    bool answersFirst = false;  // a request is answered before it is carried out
};

StoreProtocol RealStoreProtocol();
StoreProtocol WithoutSyncOfTheFile();
StoreProtocol WithoutSyncOfTheFolder();
StoreProtocol WritingInPlace();
StoreProtocol AnsweringFirst();
