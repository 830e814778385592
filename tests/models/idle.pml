/* idle.pml - no task stays queued while every worker sleeps.
 *
 * Two pushers, two workers, two queues, and the end of the library. Checked by spin:
 * scripts/models.sh. A queue is a count behind a lock; a push, a look and a sleep take the steps of
 * qx/tasks/scheduler_queues.cpp and scheduler_run.cpp. An invalid end state is a lost wake-up.
 */
#define QUEUES 2
#define WORKERS 2
#define TASKS 3

bool locked[QUEUES];
byte queued[QUEUES];
byte sleeping;
bool unwoken;
bool wake_mutex;
bool waits[WORKERS];
byte ran;
bool running = true;

inline acquire(q) { atomic { !locked[q] -> locked[q] = true } }
inline release(q) { locked[q] = false }
inline lock_mutex() { atomic { !wake_mutex -> wake_mutex = true } }
inline unlock_mutex() { wake_mutex = false }

inline broadcast() {
    d_step { waits[0] = false; waits[1] = false }
}

inline push(q) {
    acquire(q);
    queued[q]++;
    release(q);
    if
    :: sleeping == 0 -> skip
    :: else ->
        if
        :: unwoken -> lock_mutex(); unwoken = false; broadcast(); unlock_mutex()
        :: else -> skip
        fi
    fi
}

proctype Pusher(byte q; byte count) {
    do
    :: count > 0 -> push(q); count--
    :: else -> break
    od
}

/* Waits for all tasks, then ends the workers as terminate does. */
proctype Ender() {
    ran == TASKS;
    acquire(0); acquire(1);
    running = false;
    release(1); release(0);
    lock_mutex(); broadcast(); unlock_mutex()
}

proctype Worker(byte self) {
    byte q;
    bool found;
    do
    :: !running -> break
    :: running ->
        /* pop: own queue, then the other's; a look without the lock first */
        found = false;
        q = self;
        do
        :: !found && q < self + QUEUES ->
            if
            :: queued[q % QUEUES] > 0 ->
                acquire(q % QUEUES);
                if
                :: queued[q % QUEUES] > 0 -> queued[q % QUEUES]--; found = true
                :: else -> skip
                fi;
                release(q % QUEUES)
            :: else -> skip
            fi;
            q++
        :: else -> break
        od;
        if
        :: found -> d_step { ran++; found = false }
        :: else ->
            /* all locks at the first attempt, as long as the queues are empty */
            q = 0;
            do
            :: q < QUEUES ->
                if
                :: atomic { !locked[q] -> locked[q] = true };
                   if
                   :: queued[q] == 0 -> q++
                   :: else -> release(q); break
                   fi
                :: locked[q] -> break
                fi
            :: else -> break
            od;
            if
            :: q == QUEUES && running ->
                sleeping++;
                lock_mutex();
                unwoken = true;
                waits[self] = true;
                release(1); release(0);
                unlock_mutex();     /* waiting lets go of it: a broadcast needs it held */
                !waits[self];
                acquire(0); acquire(1);
                sleeping--;
                release(1); release(0)
            :: q == QUEUES && !running -> release(1); release(0); break
            :: q < QUEUES ->
                do
                :: q > 0 -> q--; release(q)
                :: else -> break
                od
            fi
        fi
    od
}

init {
    atomic {
        run Worker(0);
        run Worker(1);
        run Pusher(0, 2);
        run Pusher(1, 1);
        run Ender()
    }
}
