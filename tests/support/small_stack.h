// small_stack.h - runs code on a thread with a stack as small as the appliance's threads may have.
#pragma once

#include <pthread.h>

#include <gtest/gtest.h>

namespace test {

template <typename Body>
void on_small_stack(Body body)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    const auto run = [](void *argument) -> void * {
        (*static_cast<Body *>(argument))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

} // namespace test
