// threads.h - threads and what they meet by, in one: atomics, mutexes, semaphores, events, starts.
#pragma once

#include "qx/tasks/atomic.h"
#include "qx/tasks/event.h"
#include "qx/tasks/mutex.h"
#include "qx/tasks/semaphore.h"
#include "qx/tasks/thread.h"
