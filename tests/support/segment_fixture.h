// SPDX-License-Identifier: Apache-2.0
// Fixture for tests of segments: a class whose segment they create, fill and read.
#pragma once

#include "support/store_fixture.h"

#include <cerrno>
#include <climits>
#include <unistd.h>

constexpr char kBase[] = "/opt/qlm/tavkit_sa/work/key";
constexpr char kKeyFile[] = "/opt/qlm/tavkit_sa/work/key3";

class Segments : public StoreTest {
protected:
    ShmInfo &shm = shmSt[TAV_CID_STRG_SCSI];
    DatInfo &ins = instSt[TAV_CID_STRG_SCSI];

    Segments() { strgInitDatInfo(instSt); }

    void twoRecords() { fill<StrgScsiRec>(ins, {scsiRecord(1, "ONE"), scsiRecord(2, "TWO")}); }

    // A segment for the records that the class has now, with nothing in it.
    void withSegment(int32_t num)
    {
        const int id = shmCreate(&cInfo, &shm, kBase, 3, num * static_cast<int>(sizeof(StrgScsiRec)));
        ASSERT_GT(id, 0);
        setSegment(shm, {id, num, nullptr}, false);
    }

    // In service mode, another thread holds the segment's lock when the product unlocks it: the work on the segment is
    // done, and the unlock fails.
    void loseTheLock()
    {
        pthread_mutexattr_t checking;
        pthread_mutexattr_init(&checking);
        pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_destroy(&shm.mutex.mutex);
        ASSERT_EQ(pthread_mutex_init(&shm.mutex.mutex, &checking), 0);
        pthread_mutexattr_destroy(&checking);
        g_srvmod = 1;
        trace->clear();
        sim::atNth(sim::Call::segment, 1, [this] { pthread_mutex_unlock(&shm.mutex.mutex); });
    }

    static size_t sizeOf(int id)
    {
        struct shmid_ds info = {};
        return ::shmctl(id, IPC_STAT, &info) == 0 ? info.shm_segsz : 0;
    }

    std::string content() const
    {
        const void *const adr = ::shmat(shm.shmId, nullptr, SHM_RDONLY);
        const std::string bytes(static_cast<const char *>(adr), sizeOf(shm.shmId));
        ::shmdt(adr);
        return bytes;
    }

    key_t keyOf(const char *path) const { return ::ftok(machine.where(path).c_str(), 69); }

    // Holds a segment's lock during its life.
    class Holder {
    public:
        explicit Holder(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
        ~Holder() { pthread_mutex_unlock(&mutex_); }
        Holder(const Holder &) = delete;
        Holder &operator=(const Holder &) = delete;

    private:
        pthread_mutex_t &mutex_;
    };
};
