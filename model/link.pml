/* Model of the handshake between the library (requesters) and the comm application over the shared record.
 *
 * Two requesting processes make REQUESTS requests each. Signals are single bits, since standard signals do not
 * queue. A wait may end by time-out at any moment, so every late reply and every late doorbell is covered. The comm
 * application may leave out its doorbell, and may die at every step and be restarted; SEM_UNDO gives the semaphore
 * back. Variants, chosen with -D:
 *   RELEASES        the comm application does not hold the semaphore from taking a request to its reply
 *   EXTRA_SIGNALS   doorbells out of the blue, at a requester and at the comm application
 *   REQUESTER_DIES  the first requester is killed at any step of its last request
 *   LOCK_FAILS      a lock after the doorbell may fail (the semaphore could not be had within its limit)
 */

#ifndef REQUESTS
#define REQUESTS 2
#endif
#define REQUESTERS 2
#define NOBODY 255

mtype = {IDLE, POSTED, REPLY};

/* The shared record; `data` stands for the packet, which names its request. */
mtype status = IDLE;
byte req_pid = NOBODY;
byte data = 0;

byte holder = NOBODY;        /* of the semaphore; REQUESTERS is the comm application */
bool rung[REQUESTERS];       /* doorbell pending at a requester */
bool comm_rung = false;      /* doorbell pending at the comm application */
bool comm_alive = false;

byte finished = 0;           /* requesters that have made all their requests */
bool record_left = false;    /* a documented case left the record not idle: failed doorbell, killed */
bool left[REQUESTERS];       /* a failed lock did, and the requester has made no request since */
byte deaths = 0;
byte restarts = 0;

inline lock(me) { atomic { holder == NOBODY -> holder = me } }
inline unlock() { holder = NOBODY }
inline clean() { status = IDLE; req_pid = NOBODY; data = 0 }

inline one_request() {
  lock(me);
  if
  :: left[me] ->                                       /* the record is taken back */
     left[me] = false;
     if
     :: req_pid == me -> clean()
     :: else
     fi
  :: else
  fi;
  if
  :: status != IDLE || req_pid != NOBODY -> unlock()  /* busy: refused */
  :: else ->
     rung[me] = false;                                /* drain */
     status = POSTED;
     req_pid = me;
     data = sequence;
     if
     :: atomic { comm_alive -> comm_rung = true }; is_posted = true
     :: !comm_alive -> record_left = true; is_posted = false
     fi;
     unlock();
     if
     :: !is_posted
     :: is_posted ->
        if
        :: atomic { rung[me] -> rung[me] = false }; is_rung = true
        :: is_rung = false                            /* the limit has passed */
        fi;
        if
        :: atomic { holder == NOBODY -> holder = me };
           if
           :: is_rung && status == REPLY && req_pid == me -> assert(data == sequence)
           :: else                                    /* timed out, or status error */
           fi;
           clean();
           assert(status == IDLE && req_pid == NOBODY);
           unlock()
#ifdef LOCK_FAILS
        :: left[me] = true
#endif
        fi
     fi
  fi
}

proctype requester(byte me) {
  byte sequence;
  byte n = 0;
  bool is_posted, is_rung;
  do
  :: n < REQUESTS ->
     n++;
     sequence = 1 + me * REQUESTS + n;
#ifdef REQUESTER_DIES
     if
     :: me == 0 && n == REQUESTS ->
        { one_request() } unless { true -> atomic {
            if
            :: holder == me -> holder = NOBODY
            :: else
            fi;
            record_left = true } }
     :: else -> one_request()
     fi
#else
     one_request()
#endif
  :: n == REQUESTS -> break
  od;
  finished++
}

inline serve() {
  byte request, target;
  end_serving:
  do
  :: atomic { comm_rung -> comm_rung = false };
     lock(REQUESTERS);
     if
     :: status != POSTED -> unlock()                   /* a stale doorbell, or a request that was given up */
     :: status == POSTED ->
        request = data;
        target = req_pid;
#ifdef RELEASES
        unlock();
        lock(REQUESTERS);
#endif
        data = request;
        status = REPLY;                                /* req_pid stays as it is */
        unlock();
        if
        :: target != NOBODY -> rung[target] = true
        :: skip                                        /* the doorbell is lost */
        fi
     fi
  od
}

proctype comm() {
  /* A start clears the record, under the semaphore. */
  lock(REQUESTERS);
  clean();
  comm_alive = true;
  unlock();
  serve()
}

/* The comm application's life: it is killed at most once, at any step, and may be started again. */
proctype comm_life() {
  bool is_dead = false;
  {
    lock(REQUESTERS); clean(); comm_alive = true; unlock();
    serve()
  } unless {
    atomic {
      deaths < 1 -> deaths++; comm_alive = false; comm_rung = false; is_dead = true;
      if
      :: holder == REQUESTERS -> holder = NOBODY
      :: else
      fi
    }
  };
  if
  :: is_dead -> restarts++; run comm()
  :: is_dead                                           /* it stays away */
  fi
}

#ifdef EXTRA_SIGNALS
proctype stray_signals() {
  rung[0] = true;
  comm_rung = comm_alive;
  rung[0] = true
}
#endif

/* When all requests have been made and the comm application has nothing left to do, the record is idle. */
proctype monitor() {
  end_monitor:
  atomic {
    finished == REQUESTERS && holder == NOBODY && !comm_rung ->
    assert(record_left || left[0] || left[1] || (status == IDLE && req_pid == NOBODY))
  }
}

init {
  atomic {
    run comm_life();
    run requester(0);
    run requester(1);
    run monitor();
#ifdef EXTRA_SIGNALS
    run stray_signals();
#endif
  }
}
