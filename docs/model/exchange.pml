/* The exchange of a client and a server over a request queue and a reply queue, for SPIN. README.md says what
   is proved, within which bounds, and which safeguard each of the macros at the #ifdefs takes out. An atomic
   step is one system call and what follows from it in the caller's own memory. */

#ifndef REQUESTS
#define REQUESTS 3 /* by the client and its successors together */
#endif
#ifndef EVENTS
#define EVENTS 2 /* deaths and signals together */
#endif
#ifndef SERVERS
#define SERVERS 3 /* of ours: each the successor of one that has died, or with OVERLAP also beside a live one */
#endif
#ifndef ROOM_REQUESTS
#define ROOM_REQUESTS 2 /* records */
#endif
#ifndef ROOM_REPLIES
#define ROOM_REPLIES 2
#endif
#ifndef ONEWAYS
#define ONEWAYS 0
#endif

/* PLAIN: when a server of the bare format runs. */
#define AFTER 1
#define BESIDE 2
#define BEFORE 3

/* The client's view of the server. */
#define Plain 0
#define Ours 1
#define Nobody 2

/* What a record carries. Requests are numbered, and an answer bears its request's number. No step of the
   protocol looks at a number, except to tell these kinds apart: */
#define FENCE 0
#define ONEWAY 13
#define WAKE 14 /* 0 bytes */
#define JUNK 15 /* joined from pieces that do not belong together */

/* Number, whether it is the message's first record, `last`. */
chan requests = [ROOM_REQUESTS] of { byte, bit, bit };
/* The third field of a final record is total_length, counted in records, and 0 in the others. A record of
   0 bytes fits into a queue that is full. */
chan replies = [ROOM_REPLIES + 1] of { byte, bit, byte };

bool queues; /* made by the first server */
bool sent;   /* msg_stime of the request queue is not 0 */

/* The semaphores of ServerLife. */
bool set;
byte life, deaths;

bool alive[2]; /* the servers of ours */
byte births;
bool plain_stops;
bool plain_gone;

byte id; /* the request that is out, or was last */
byte oneways;
bool out; /* an exchange is under way */
bool client_killed;
bool waiting; /* in msgrcv() */
bool signalled;

/* The client's `deaths` as read before its request, and ReplyWatch. */
byte d;
bool watching, woken;

#ifdef DEATHS_NOT_COMPARED
#define deathsDiffer false
#define serverLost (life == 0)
#else
#define deathsDiffer (deaths != d)
#define serverLost deathsDiffer
#endif

#ifdef LENGTH_NOT_COMPARED
#define wrongLength false
#else
#define wrongLength (joined != last)
#endif

/* Adds a record to `joined` records of the message `tag`. */
inline joinRecord(joined, tag, whose, first) {
  if
  :: joined == 0 && first -> tag = whose
  :: joined > 0 && !first && tag == whose -> skip
  :: else -> tag = JUNK
  fi;
  joined = (joined < 4 -> joined + 1 : 4)
}

/* ---- The client ---- */

inline drain() {
  do :: replies?whose, first, _ :: empty(replies) -> break od;
  whose = 0;
  first = 0
}

inline forgetExchange() {
  out = false; waiting = false; signalled = false; watching = false; d = 0;
  joined = 0; tag = 0; whose = 0; first = 0; last = 0; lives = 0; standing = 0; two = false; given_up = false
}

active proctype Client() {
  byte standing, lives, joined, tag, whose;
  bit first;
  byte last;
  bool two;     /* the request has two records */
  bool opened;  /* this handle has opened the queues */
  bool known;   /* what lies before the next request is this handle's */
  bool doubt;
  bool refused; /* a second has not passed since a refusal, as far as anybody knows */
  bool given_up;
  bool failed_before; /* for an assertion */

handle:
  {
    do
#ifdef ORDERLY
    :: atomic { true -> goto successor }
#endif

    /* sendOneWay(), of two records; one that finds no room is dropped */
    :: atomic { queues && oneways < ONEWAYS ->
         oneways++;
#ifndef ONEWAYS_TRUSTED
         known = false;
#endif
         if :: nfull(requests) -> requests!ONEWAY, 1, 0; sent = true :: full(requests) fi };
       atomic { if :: nfull(requests) -> requests!ONEWAY, 0, 1; sent = true :: full(requests) fi }

    /* exchange() */
    :: atomic { id < REQUESTS ->
         id++;
         out = true;
         if
         :: two = false
#ifndef SINGLE
         :: two = true
#endif
         fi };

       /* openQueues(); before there are any it is -3, and nothing has happened */
end_open:
       atomic { queues -> if :: !opened -> drain(); opened = true :: else fi };

       /* deaths(), then life() */
look:
#ifdef LIFE_READ_FIRST
       atomic { lives = life; standing = (set -> Ours : Plain) };
       atomic { d = deaths; if :: standing == Ours && lives == 0 -> standing = Nobody :: else fi; lives = 0 };
#else
       atomic { d = deaths; standing = (set -> Ours : Plain) };
       atomic { if :: standing == Ours && life == 0 -> standing = Nobody :: else fi };
#endif
       atomic {
         if
         :: standing == Ours && !known ->
            if :: sent -> doubt = true :: else fi;
            known = true
         :: else
         fi;
#ifdef FIRST_REQUEST_ONLY
         known = true
#endif
       };
       if
       :: atomic { standing == Nobody && refused -> goto failed }
#ifdef REFUSED_BEHIND_A_RECORD
       :: atomic { standing == Nobody && nempty(requests) -> goto failed }
#endif
#ifndef ORDERLY
       :: atomic { standing == Nobody && nempty(requests) -> refused = true; goto failed }
#endif
       :: atomic { standing == Nobody && !refused && empty(requests) -> skip };
#ifndef NO_SECOND_LOOK
          /* A server that has started since may have taken what an earlier client left. */
          atomic { if :: life > 0 || deathsDiffer -> goto look :: else fi };
#endif
#ifndef DEAD_SERVERS_ANSWERS_KEPT
          atomic { drain() }
#endif
       :: atomic { standing != Nobody -> skip }
       fi;

       /* restoreOrder() */
       if
       :: atomic { !doubt -> skip }
       :: atomic { doubt && standing == Ours && life > 1 -> goto failed }
       :: atomic { doubt && !(standing == Ours && life > 1) -> skip };
          atomic { drain() };
          atomic {
            if
            :: full(requests) -> goto failed
            :: nfull(requests) ->
               assert(standing == Ours || failed_before);
               requests!FENCE, 1, 1; sent = true
            fi
          };
          do
          :: atomic { empty(requests) -> break }
          :: atomic { nempty(replies) -> drain() }
          :: atomic { standing == Ours && serverLost -> goto failed }
#ifndef ORDERLY
          :: atomic { standing == Nobody && requests?[whose, first, last] -> skip };
             atomic {
               if
               :: requests?whose, first, last -> refused = true; goto failed
               :: empty(requests) -> break
               fi }
#endif
          od;
#ifndef FENCE_TAKER_UNKNOWN
          /* One server, and the same one, from the look to here. */
          atomic { if :: standing == Ours && life != 1 -> goto failed :: else fi };
          atomic { if :: standing == Ours && deathsDiffer -> goto failed :: else fi };
#endif
#ifndef DRAINED_ONLY_BEFORE
          atomic { drain() };
#endif
          if
          :: atomic { standing == Nobody -> lives = life };
             atomic {
               if
#ifndef TAKER_NOT_COMPARED
               :: deathsDiffer -> goto failed
#endif
               :: else -> standing = (lives > 0 -> Ours : Plain)
               fi
             }
          :: atomic { standing != Nobody -> skip }
          fi;
          doubt = false
       fi;

       /* the request's records */
       atomic {
         if
         :: full(requests) -> goto failed
         :: nfull(requests) -> requests!id, 1, !two; sent = true
         fi
       };
       if
       :: atomic { standing == Nobody ->
            if
            :: empty(requests)
#ifndef ORDERLY
            :: requests?whose, first, last -> refused = true; goto failed
#endif
            fi };
          lives = life;
          atomic {
            if
#ifndef TAKER_NOT_COMPARED
            :: deathsDiffer -> doubt = true; goto failed
#endif
            :: else -> standing = (lives > 0 -> Ours : Plain)
            fi
          }
       :: atomic { standing != Nobody -> skip }
       fi;
       if
       :: atomic { two ->
            if
            :: nfull(requests) -> requests!id, 0, 1
            :: full(requests) ->
#ifndef NO_DOUBT_AFTER_HALF_A_REQUEST
               doubt = true;
#endif
               goto failed
            fi }
       :: atomic { !two -> skip }
       fi;

       /* watch.begin(d), and joining until `last` */
       atomic { watching = (standing == Ours); waiting = true };
       do
       :: atomic { replies?whose, first, last ->
            if
            :: whose == WAKE -> assert(woken); given_up = true; break
            :: else ->
               joinRecord(joined, tag, whose, first);
               if :: last -> break :: else fi
            fi }
       :: atomic { signalled -> given_up = true; break }
       od;
       /* watch.end() */
       atomic {
         watching = false; waiting = false; signalled = false;
#ifdef WOKEN_NOT_DRAINED
         woken = false
#else
         if :: woken -> drain(); woken = false :: else fi
#endif
       };
       atomic {
         if
         :: given_up ->
#ifndef NO_DOUBT_AFTER_GIVING_UP
            doubt = true;
#endif
            goto failed
         :: else
         fi;
         if :: standing == Ours && wrongLength -> doubt = true; goto failed :: else fi
       };
#ifndef NO_SECOND_COMPARISON
       /* life(), then deaths() */
       if
       :: atomic { standing == Ours && two -> if :: life != 1 -> doubt = true; goto failed :: else fi };
          atomic { if :: deathsDiffer -> doubt = true; goto failed :: else fi }
       :: atomic { !(standing == Ours && two) -> skip }
       fi;
#endif
       /* the answer is delivered */
       atomic {
         assert(tag == id && joined == last);
         refused = false;
#ifdef ORDERLY
         assert(empty(requests) && empty(replies));
#endif
         goto ended;
failed:
#ifdef ORDERLY
         assert(false);
#endif
         failed_before = true;
ended:
         forgetExchange()
       }

    :: atomic { id == REQUESTS -> break }
    od
  } unless { client_killed };
  if
  :: atomic { client_killed ->
successor:
       client_killed = false; woken = false;
       opened = false; known = false; doubt = false; refused = false; failed_before = false;
       forgetExchange();
       goto handle }
  :: else
  fi
}

active proctype Watch() {
end:
  do
  :: atomic { watching && !woken && serverLost -> replies!WAKE, 0, 0; woken = true }
  od
}

/* ---- The servers ---- */

/* A record of an answer that finds no room is dropped. */
inline putReply(is_first, total_if_last) {
  atomic {
    if
    :: len(replies) < ROOM_REPLIES -> replies!tag, is_first, total_if_last
    :: else -> lost = true
    fi
  }
}

inline noteLoss() {
  atomic {
#ifdef LOSS_NOT_NOTED
    lost = false;
#else
    if :: lost -> deaths++; lost = false :: else fi;
#endif
    joined = 0; tag = 0
  }
}

inline receiveLoop() {
end_take:
  do
  :: atomic { requests?whose, first, last ->
       if
#ifdef FENCE_JOINED
       :: whose == FENCE -> last = 0
#else
       :: whose == FENCE -> joined = 0; tag = 0; last = 0
#endif
       :: else -> joinRecord(joined, tag, whose, first)
       fi;
       first = 0 };
     if
     :: atomic { !last -> whose = 0 }
     :: atomic { last && whose == ONEWAY -> joined = 0; tag = 0; whose = 0; last = 0 }
#ifdef LOSSES
     :: atomic { last && whose != ONEWAY -> whose = 0; last = 0; lost = true }; noteLoss()
#endif
     :: atomic { last && whose != ONEWAY -> whose = 0; last = 0; putReply(1, 1) }; noteLoss()
     :: atomic { last && whose != ONEWAY -> whose = 0; last = 0; putReply(1, 0) }; putReply(0, 2); noteLoss()
#ifdef LONG_REPLIES
     :: atomic { last && whose != ONEWAY -> whose = 0; last = 0; putReply(1, 0) };
        putReply(0, 0); putReply(0, 3); noteLoss()
#endif
     fi
  od
}

/* ServerLife */
inline begin() { set = true; life++; alive[me] = true; births++; queues = true }
inline end(who) { alive[who] = false; life--; deaths++ }

proctype Server(bit me) {
  byte joined, tag, whose;
  bit first, last;
  bool lost;
#if PLAIN == BEFORE
end_start:
  plain_gone;
#endif
  do
  :: atomic { births < SERVERS -> begin() };
end_serve:
     { receiveLoop() } unless {
       d_step { !alive[me] -> joined = 0; tag = 0; whose = 0; first = 0; last = 0; lost = false } }
#if PLAIN == BEFORE
  :: births > 0 -> break
#else
  :: break
#endif
  od
}

#ifdef PLAIN
/* No semaphores. It stops only while it has nothing to do, and its queues have room for every answer. */
active proctype PlainServer() {
  byte joined, tag, whose;
  bit first, last;
  bool lost;
#if PLAIN == AFTER
end_start:
  births == SERVERS && life == 0;
#elif PLAIN == BESIDE
end_start:
  births > 0;
#endif
  queues = true;
end_serve:
  { receiveLoop() } unless { atomic { plain_stops && joined == 0; plain_gone = true } }
}
#endif

/* Processes end by whatever cause, and signals break a wait: at any time, or not at all. In an orderly run a
   server stops between two exchanges. */
#ifdef ORDERLY
#define mayStop !out
#else
#define mayStop true
#endif

active proctype Kernel() {
  byte events;
#if PLAIN == BEFORE
  if :: atomic { mayStop -> plain_stops = true } :: true fi;
#endif
  do
  :: atomic { events < EVENTS && alive[0] && mayStop -> events++; end(0) }
#ifndef ORDERLY
#ifdef OVERLAP
  :: atomic { events < EVENTS && alive[1] -> events++; end(1) }
#endif
#ifndef CLIENT_LIVES
  :: atomic { events < EVENTS && id > 0 && !client_killed -> events++; client_killed = true; watching = false }
#endif
#ifndef NO_SIGNALS
  :: atomic { events < EVENTS && waiting && !signalled -> events++; signalled = true }
#endif
#endif
  :: break
  od
}

init {
  atomic {
    run Server(0)
#ifdef OVERLAP
    ; run Server(1)
#endif
  }
}
