// Who frees what: objects made during a call go with its scope, clones live until released,
// objects made outside any call belong to the broker, and the memory functions follow scopes.
#include "BrokerFixture.h"

#include "host/broker/CallArena.h"
#include "host/broker/HostObject.h"
#include "host/broker/HostString.h"
#include "host/broker/StringTable.h"
#include "host/memory/ObjectPool.h"
#include "host/memory/ScopeMemory.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace diaghost::test {

using OwnershipTest = BrokerFixture;

TEST_F(OwnershipTest, ScopeFreesWhatWasMadeInItButNotClones) {
    std::size_t brokerOwned = broker->ownArena().size();
    CMPIInstance* survivor = nullptr;
    {
        CallScope scope(*broker);
        CMPIInstance* inst = instance("Test_Record");
        setChars(inst, "Text", "keep me");
        CMNewString(mb, "temporary", nullptr);
        EXPECT_EQ(scope.ownedCount(), 3u); // path, instance, string
        survivor = CMClone(inst, nullptr);
        EXPECT_EQ(scope.ownedCount(), 3u);
    }
    EXPECT_EQ(broker->ownArena().size(), brokerOwned);
    EXPECT_EQ(stringProperty(survivor, "Text"), "keep me");
    EXPECT_EQ(CMRelease(survivor).rc, CMPI_RC_OK);
}

TEST_F(OwnershipTest, ReleasingAnOwnedObjectFreesItEarlyAndLeavesItsScope) {
    CallScope scope(*broker);
    CMPIString* a = CMNewString(mb, "a", nullptr);
    CMPIString* b = CMNewString(mb, "b", nullptr);
    ASSERT_EQ(scope.ownedCount(), 2u);
    EXPECT_EQ(CMRelease(a).rc, CMPI_RC_OK);
    EXPECT_EQ(scope.ownedCount(), 1u);
    EXPECT_STREQ(CMGetCharPtr(b), "b");
    // Data read from an instance belongs to the instance: releasing it changes nothing.
    CMPIInstance* inst = instance("Test_Record");
    setChars(inst, "Text", "owned by the instance");
    CMPIData d = CMGetProperty(inst, "Text", nullptr);
    EXPECT_EQ(CMRelease(d.value.string).rc, CMPI_RC_OK);
    EXPECT_EQ(stringProperty(inst, "Text"), "owned by the instance");
}

TEST_F(OwnershipTest, NestedScopesOwnTheirOwnObjects) {
    CallScope outer(*broker);
    CMNewString(mb, "outer", nullptr);
    {
        CallScope inner(*broker);
        CMNewString(mb, "inner", nullptr);
        CMNewArgs(mb, nullptr);
        EXPECT_EQ(inner.ownedCount(), 2u);
        EXPECT_EQ(outer.ownedCount(), 1u);
        EXPECT_EQ(&CallScope::arenaFor(*broker), CallScope::innermost());
    }
    CMNewString(mb, "outer again", nullptr);
    EXPECT_EQ(outer.ownedCount(), 2u);
    // A scope opened for another broker does not take this broker's objects.
    auto other = makeBroker(PathDialect::Sfcb);
    CallScope foreign(*other);
    CMNewString(mb, "still outer", nullptr);
    EXPECT_EQ(outer.ownedCount(), 3u);
    EXPECT_EQ(foreign.ownedCount(), 0u);
}

TEST_F(OwnershipTest, ObjectsMadeOutsideAnyScopeBelongToTheBroker) {
    std::size_t before = broker->ownArena().size();
    CMNewString(mb, "mine", nullptr);
    CMNewDateTime(mb, nullptr);
    EXPECT_EQ(broker->ownArena().size(), before + 2);
}

TEST_F(OwnershipTest, AdoptHandsAClonedObjectToTheCurrentScope) {
    CMPIString* clone = nullptr;
    {
        CallScope scope(*broker);
        CMPIString* made = CMNewString(mb, "x", nullptr);
        clone = CMClone(made, nullptr);
        EXPECT_TRUE(CallScope::adopt(*broker, clone));
        EXPECT_EQ(scope.ownedCount(), 2u);
        // Already owned: nothing changes.
        EXPECT_FALSE(CallScope::adopt(*broker, clone));
        void* notAnObject[2] = {};
        EXPECT_FALSE(CallScope::adopt(*broker, notAnObject));
    }
    auto other = makeBroker(PathDialect::Sfcb);
    CMPIString* made = CMNewString(other->cmpi(), "y", nullptr);
    CMPIString* foreign = CMClone(made, nullptr);
    EXPECT_FALSE(CallScope::adopt(*broker, foreign));
    CMRelease(foreign);
}

TEST_F(OwnershipTest, MarkAndReleaseFreeWhatWasMadeSinceTheMark) {
    CallScope scope(*broker);
    CMNewString(mb, "before", nullptr);
    CMPIStatus rc{};
    CMPIGcStat* mark = mb->mft->mark(mb, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    CMNewString(mb, "after", nullptr);
    void* block = mb->mft->cmpiMalloc(mb, 100);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(scope.ownedCount(), 3u);
    EXPECT_EQ(mb->mft->release(mb, mark).rc, CMPI_RC_OK);
    EXPECT_EQ(scope.ownedCount(), 1u);
    // The mark is gone with what followed it.
    EXPECT_EQ(mb->mft->release(mb, mark).rc, CMPI_RC_ERR_INVALID_HANDLE);
}

TEST_F(OwnershipTest, MemoryBlocksBelongToTheScopeUnlessFreedEarly) {
    CallScope scope(*broker);
    char* copy = mb->mft->cmpiStrDup(mb, "text");
    EXPECT_STREQ(copy, "text");
    auto* zeros = static_cast<unsigned char*>(mb->mft->cmpiCalloc(mb, 16, 4));
    ASSERT_NE(zeros, nullptr);
    for (int i = 0; i < 64; ++i)
        ASSERT_EQ(zeros[i], 0);
    EXPECT_EQ(mb->mft->cmpiCalloc(mb, ~std::size_t(0), 16), nullptr);
    auto* grown = static_cast<char*>(mb->mft->cmpiRealloc(mb, copy, 1000));
    ASSERT_NE(grown, nullptr);
    EXPECT_STREQ(grown, "text");
    EXPECT_EQ(scope.ownedCount(), 2u);
    mb->mft->cmpiFree(mb, grown);
    EXPECT_EQ(scope.ownedCount(), 1u);
    // Objects can be given back early through the memory table too.
    CMPIString* s = CMNewString(mb, "s", nullptr);
    CMPIInstance* inst = instance("Test_Record");
    EXPECT_EQ(scope.ownedCount(), 4u);
    mb->mft->freeString(mb, s);
    mb->mft->freeInstance(mb, inst);
    EXPECT_EQ(scope.ownedCount(), 2u);
}

TEST_F(OwnershipTest, AttachedThreadContextLivesUntilDetach) {
    CMPIContext* ctx = broker->newContext("root/cimv2");
    std::size_t before = broker->ownArena().size();
    CMPIContext* prepared = mb->bft->prepareAttachThread(mb, ctx);
    ASSERT_NE(prepared, nullptr);
    EXPECT_EQ(broker->ownArena().size(), before + 1);
    EXPECT_EQ(mb->bft->attachThread(mb, prepared).rc, CMPI_RC_OK);
    EXPECT_EQ(text(CMGetContextEntry(prepared, CMPIInitNameSpace, nullptr).value.string),
              "root/cimv2");
    EXPECT_EQ(mb->bft->detachThread(mb, prepared).rc, CMPI_RC_OK);
    EXPECT_EQ(broker->ownArena().size(), before);
    // Detaching with the caller's own context leaves that context alone.
    EXPECT_EQ(mb->bft->detachThread(mb, ctx).rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetContextEntryCount(ctx, nullptr), 3u);
}

// Blocks of every size, kept and not kept, filled to their last byte, freed on another thread
// and asked for again: a size class too small, or a block handed out twice, corrupts the heap.
TEST_F(OwnershipTest, RecycledBlocksHoldTheirWholeSizeOnEveryThread) {
    const std::size_t largest = ObjectPool::largestKept + 40;
    auto fill = [&](std::vector<void*>& blocks) {
        for (std::size_t size = 1; size <= largest; ++size) {
            blocks.push_back(ObjectPool::allocate(size));
            std::memset(blocks.back(), static_cast<int>(size & 0xff), size);
        }
    };
    std::vector<void*> blocks;
    fill(blocks);
    std::thread other([&] {
        for (std::size_t i = 0; i < blocks.size(); ++i)
            ObjectPool::deallocate(blocks[i], i + 1);
    });
    other.join();
    std::vector<void*> again;
    fill(again);
    for (std::size_t i = 0; i < again.size(); ++i) {
        EXPECT_EQ(static_cast<unsigned char*>(again[i])[i],
                  static_cast<unsigned char>((i + 1) & 0xff));
        ObjectPool::deallocate(again[i], i + 1);
    }
    ObjectPool::deallocate(nullptr, 8);
}

// What a scope makes comes from scope memory, and everything that may outlive the scope does
// not: a clone, what a result sink keeps, and the values a kept clone takes in a later call.
TEST_F(OwnershipTest, OnlyObjectsThatDieWithTheirScopeUseScopeMemory) {
    if (!ScopeMemory::available())
        GTEST_SKIP() << "scope memory is bypassed in this build";
    auto inScopeMemory = [](const void* cmpi) {
        return ScopeMemory::owns(HostObject::fromCmpi(cmpi));
    };
    CMPIInstance* kept = nullptr;
    {
        CallScope scope(*broker);
        CMPIInstance* inst = instance("Test_Record");
        setChars(inst, "Text", "transient");
        EXPECT_TRUE(inScopeMemory(inst));
        EXPECT_TRUE(inScopeMemory(CMGetProperty(inst, "Text", nullptr).value.string));
        kept = CMClone(inst, nullptr);
        EXPECT_FALSE(inScopeMemory(kept));
        EXPECT_FALSE(inScopeMemory(CMGetProperty(kept, "Text", nullptr).value.string));
        CMPIString* s = CMClone(CMNewString(mb, "x", nullptr), nullptr);
        EXPECT_FALSE(inScopeMemory(s));
        CMRelease(s);
    }
    {
        CallScope later(*broker);
        setChars(kept, "Text", "changed in a later call");
        EXPECT_FALSE(inScopeMemory(CMGetProperty(kept, "Text", nullptr).value.string));
        // Paths made from the kept clone share key copies with it from the second one on.
        CMGetObjectPath(kept, nullptr);
        CMPIObjectPath* op = CMGetObjectPath(kept, nullptr);
        EXPECT_TRUE(inScopeMemory(op));
    }
    EXPECT_EQ(stringProperty(kept, "Text"), "changed in a later call");
    CMRelease(kept);
    // Outside any scope nothing comes from scope memory.
    EXPECT_EQ(ScopeMemory::allocate(16), nullptr);
}

// Clones share nothing with the scope they were made in, not even the key copies an instance
// shares with its paths or the keys of the paths in its references: once the scope is gone, its
// chunk is free again and the next call starts it from the beginning.
TEST_F(OwnershipTest, ClonesKeepNothingOfTheScopeTheyWereMadeIn) {
    if (!ScopeMemory::available())
        GTEST_SKIP() << "scope memory is bypassed in this build";
    auto firstBlockOfACall = [] {
        ScopeMemory::scopeOpened();
        void* block = ScopeMemory::allocate(16);
        ScopeMemory::deallocate(block);
        ScopeMemory::scopeClosed();
        return block;
    };
    void* start = firstBlockOfACall();
    CMPIInstance* link = nullptr;
    CMPIInstance* disk = nullptr;
    CMPIObjectPath* diskPath = nullptr;
    {
        CallScope scope(*broker);
        CMPIInstance* d = instance("Test_Disk");
        setChars(d, "SystemName", "host");
        setChars(d, "CreationClassName", "Test_Disk");
        setChars(d, "deviceID", "sda");
        CMGetObjectPath(d, nullptr);
        CMPIObjectPath* p = CMGetObjectPath(d, nullptr);
        CMPIInstance* l = instance("Test_Link");
        ASSERT_EQ(CMSetProperty(l, "Antecedent", &p, CMPI_ref).rc, CMPI_RC_OK);
        ASSERT_EQ(CMSetProperty(l, "Dependent", &p, CMPI_ref).rc, CMPI_RC_OK);
        CMGetObjectPath(l, nullptr);
        CMGetObjectPath(l, nullptr);
        link = CMClone(l, nullptr);
        disk = CMClone(d, nullptr);
        diskPath = CMClone(p, nullptr);
    }
    EXPECT_EQ(firstBlockOfACall(), start);
    CallScope later(*broker);
    EXPECT_EQ(pathText(CMGetObjectPath(disk, nullptr)), pathText(diskPath));
    EXPECT_EQ(pathText(CMGetObjectPath(disk, nullptr)), pathText(diskPath));
    EXPECT_EQ(pathText(CMGetProperty(link, "Antecedent", nullptr).value.ref), pathText(diskPath));
    EXPECT_NE(pathText(CMGetObjectPath(link, nullptr)).find("sda"), std::string::npos);
    CMRelease(link);
    CMRelease(disk);
    CMRelease(diskPath);
}

// A chunk goes back when its last block is freed, on whichever thread frees it, and a thread
// whose chunk emptied starts it again from the beginning in its next call.
TEST_F(OwnershipTest, ScopeMemoryChunksReturnWhenTheirLastBlockIsFreedOnAnyThread) {
    if (!ScopeMemory::available())
        GTEST_SKIP() << "scope memory is bypassed in this build";
    const std::size_t before = ScopeMemory::chunksInUse();
    // More chunks than are kept with their pages, twice: the second round takes chunks back from
    // both free lists, those that kept their pages and those given back to the kernel.
    const std::size_t chunks = ScopeMemory::warmChunksKept + 3;
    for (int round = 0; round < 2; ++round) {
        std::vector<void*> blocks;
        std::thread maker([&] {
            ScopeMemory::scopeOpened();
            std::size_t bytes = 0;
            for (std::size_t size = 1; bytes < chunks * ScopeMemory::chunkSize;
                 size = size % 4000 + 1) {
                void* b = ScopeMemory::allocate(size);
                ASSERT_NE(b, nullptr);
                ASSERT_EQ(reinterpret_cast<std::uintptr_t>(b) % 16, 0u);
                std::memset(b, static_cast<int>(size & 0xff), size);
                blocks.push_back(b);
                bytes += size;
            }
            EXPECT_EQ(ScopeMemory::allocate(ScopeMemory::largestBlock + 1), nullptr);
            ScopeMemory::scopeClosed();
        });
        maker.join();
        EXPECT_GE(ScopeMemory::chunksInUse(), before + chunks);
        std::thread freer([&] {
            for (void* b : blocks)
                ScopeMemory::deallocate(b);
        });
        freer.join();
        EXPECT_EQ(ScopeMemory::chunksInUse(), before);
    }

    ScopeMemory::scopeOpened();
    void* first = ScopeMemory::allocate(64);
    ScopeMemory::deallocate(first);
    ScopeMemory::scopeClosed();
    ScopeMemory::scopeOpened();
    EXPECT_EQ(ScopeMemory::allocate(64), first);
    ScopeMemory::deallocate(first);
    // A block kept past its scope keeps the chunk: the next call goes on after it.
    void* kept = ScopeMemory::allocate(64);
    ScopeMemory::scopeClosed();
    ScopeMemory::scopeOpened();
    void* next = ScopeMemory::allocate(64);
    EXPECT_NE(next, first);
    EXPECT_NE(next, kept);
    ScopeMemory::deallocate(next);
    ScopeMemory::deallocate(kept);
    ScopeMemory::scopeClosed();
}

// Kept objects share one string per text; each holder lets go of it on its own, and the last
// one takes it out of the table. Changing a value replaces the holder's string, never the text.
TEST_F(OwnershipTest, KeptCopiesOfOneTextShareOneStringUntilTheLastLetsGo) {
    const std::size_t before = StringTable::size();
    CMPIInstance* first = nullptr;
    CMPIInstance* second = nullptr;
    {
        CallScope scope(*broker);
        CMPIInstance* inst = instance("Test_Record");
        setChars(inst, "Text", "one caption for every record");
        first = CMClone(inst, nullptr);
        second = CMClone(inst, nullptr);
    }
    EXPECT_EQ(StringTable::size(), before + 1);
    CMPIString* shared = CMGetProperty(first, "Text", nullptr).value.string;
    EXPECT_EQ(CMGetProperty(second, "Text", nullptr).value.string, shared);
    EXPECT_EQ(CMRelease(shared).rc, CMPI_RC_OK);
    CMPIString* own = CMClone(shared, nullptr);
    EXPECT_NE(own, shared);

    setChars(first, "Text", "changed on one record");
    EXPECT_EQ(stringProperty(second, "Text"), "one caption for every record");
    EXPECT_EQ(StringTable::size(), before + 2);
    CMRelease(first);
    EXPECT_EQ(StringTable::size(), before + 1);
    CMRelease(second);
    EXPECT_EQ(StringTable::size(), before);
    EXPECT_STREQ(CMGetCharPtr(own), "one caption for every record");
    CMRelease(own);
}

// Enough texts to grow the table several times, then most taken out again (closing gaps in the
// probe sequences and shrinking it): every text still held is found as the string it was.
TEST_F(OwnershipTest, StringTableFindsEveryHeldTextAfterOthersAreTakenOut) {
    const std::size_t before = StringTable::size();
    std::vector<std::string> texts;
    std::vector<HostString*> held;
    for (int i = 0; i < 3000; ++i) {
        texts.push_back("text " + std::to_string(i * 7919 % 3001));
        held.push_back(StringTable::acquire(*broker, texts.back().data(), texts.back().size()));
    }
    EXPECT_EQ(StringTable::size(), before + texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i)
        if (i % 23 != 0) {
            StringTable::release(held[i]);
            held[i] = nullptr;
        }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        HostString* again = StringTable::acquire(*broker, texts[i].data(), texts[i].size());
        if (held[i]) {
            EXPECT_EQ(again, held[i]) << texts[i];
        }
        EXPECT_EQ(std::string(again->text(), again->length()), texts[i]);
        StringTable::release(again);
    }
    for (HostString* s : held)
        if (s)
            StringTable::release(s);
    EXPECT_EQ(StringTable::size(), before);
}

// Two threads taking and letting go of the same texts, by lookup and by holding on to a held
// string, leave nothing behind and never free a string another still holds.
TEST_F(OwnershipTest, StringHoldersOnTwoThreadsLeaveNoStringBehind) {
    const std::size_t before = StringTable::size();
    auto churn = [this](int seed) {
        for (int i = 0; i < 20000; ++i) {
            const std::string text = "busy " + std::to_string((i + seed) % 5);
            HostString* s = StringTable::acquire(*broker, text.data(), text.size());
            HostString* again = StringTable::retain(s);
            StringTable::release(s);
            ASSERT_EQ(std::string(again->text(), again->length()), text);
            StringTable::release(again);
        }
    };
    std::thread other(churn, 1);
    churn(0);
    other.join();
    EXPECT_EQ(StringTable::size(), before);
}

} // namespace diaghost::test
