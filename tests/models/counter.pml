/* counter.pml - a counter lets every waiter go on once, and may die when a wait returns.
 *
 * Two who decrement and two tasks that wait, on a count of 2, with the steps of
 * qx/tasks/scheduler_counter.cpp: the list's head is its lock, the count changes under it, and a task
 * is linked by its thread after its fibre has been left. The counter is destroyed by the last wait to
 * return; `alive` is asserted at each touch.
 */
#define WAITERS 2

bool locked;
byte count = 2;
bool linked[WAITERS];
bool on_fibre[WAITERS];   /* the fibre's own thread still runs on its stack */
bool queued[WAITERS];     /* pushed at the head of a queue: anyone may resume it */
byte returned;
bool alive = true;

inline lock_list() {
    assert(alive);
    atomic { !locked -> assert(alive); locked = true }
}
inline unlock_list() { assert(alive); locked = false }

inline resume(w) {
    assert(!on_fibre[w]);
    assert(!queued[w]);
    queued[w] = true
}

proctype Decrement() {
    bool taken[WAITERS];
    byte w;
    lock_list();
    count--;
    if
    :: count == 0 ->
        d_step { w = 0; do :: w < WAITERS -> taken[w] = linked[w]; linked[w] = false; w++ :: else -> break od };
        unlock_list();
        w = 0;
        do
        :: w < WAITERS -> if :: taken[w] -> resume(w) :: else -> skip fi; w++
        :: else -> break
        od
    :: else -> unlock_list()
    fi
}

inline wait_returned() {
    d_step {
        returned++;
        if :: returned == WAITERS -> alive = false :: else -> skip fi
    }
}

proctype Wait(byte w) {
    on_fibre[w] = true;
    assert(alive);
    if
    :: count == 0 -> lock_list(); unlock_list(); on_fibre[w] = false
    :: else ->
        on_fibre[w] = false;      /* the switch; what follows is the thread's */
        lock_list();
        if
        :: count != 0 -> linked[w] = true; unlock_list()
        :: else -> unlock_list(); resume(w)
        fi;
        queued[w]                 /* popped again */
    fi;
    wait_returned()
}

init {
    atomic {
        run Decrement();
        run Decrement();
        run Wait(0);
        run Wait(1)
    }
}
