/// @file
/// Keeps ryn_torture and the tests off the machine's real queues and sockets, and tests apart from each
/// other.
///
/// A test need not ask for it: it finds empty IPC and network namespaces of its own, whether it runs alone
/// or after others in one process. Where the kernel refuses namespaces the tests say so once, run one at a
/// time (a lock file), and remove the bridge's own queues before each test.
#ifndef HBBTV_RYN_TOOLS_SUPPORT_ISOLATION_H
#define HBBTV_RYN_TOOLS_SUPPORT_ISOLATION_H

namespace hbbtv_ryn::test {

/// Once per process, while it has one thread: enters new, empty IPC and network namespaces, with the
/// loopback interface up. @return false where the kernel refuses; errno says why.
bool enterNamespaces();

/// Removes the bridge's queues and semaphores, whoever made them.
void removeQueues();

/// Once per test process, while it has one thread: enters new namespaces, or takes the lock.
void isolateProcess();

/// Before each test: no queue, no semaphore.
void isolateTest();

/// Whether this process has namespaces of its own.
bool isIsolated();

/// Sets kernel.msgmnb, the capacity in bytes of every queue made from now on. Throws where that is refused.
void setQueueCapacity(int bytes);

/// Sets kernel.msgmni, the number of queues that can exist. Throws where that is refused.
void setQueueLimit(int queues);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_SUPPORT_ISOLATION_H
