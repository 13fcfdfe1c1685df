// Values in LMDB, a database in memory that processes share. Reads renew a transaction, which is
// its quick way; writes do not wait for the disk.

#include "InTurn.h"
#include "PlainSlot.h"

#include <QDir>
#include <QTemporaryDir>

#include <stdexcept>

#include <benchmark/benchmark.h>
#include <lmdb.h>

namespace {

void require(int result)
{
    if (result != MDB_SUCCESS) {
        throw std::runtime_error(mdb_strerror(result));
    }
}

MDB_val bytes(void *data, std::size_t size)
{
    return {size, data};
}

class Database
{
public:
    Database()
    {
        require(mdb_env_create(&m_environment));
        require(mdb_env_open(m_environment, QFile::encodeName(m_directory.path()).constData(),
                             MDB_NOSYNC | MDB_WRITEMAP, 0600));
        MDB_txn *transaction = nullptr;
        require(mdb_txn_begin(m_environment, nullptr, 0, &transaction));
        require(mdb_dbi_open(transaction, nullptr, MDB_INTEGERKEY, &m_table));
        require(mdb_txn_commit(transaction));
    }
    ~Database() { mdb_env_close(m_environment); }

    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    MDB_txn *begin(unsigned int flags)
    {
        MDB_txn *transaction = nullptr;
        require(mdb_txn_begin(m_environment, nullptr, flags, &transaction));
        return transaction;
    }

    void write(int number, unsigned char *slot)
    {
        MDB_txn *transaction = begin(0);
        MDB_val key = bytes(&number, sizeof number);
        MDB_val data = bytes(slot, PlainSlot::size);
        require(mdb_put(transaction, m_table, &key, &data, 0));
        require(mdb_txn_commit(transaction));
    }

    PlainSlot::Value read(int number, MDB_txn *transaction)
    {
        MDB_val key = bytes(&number, sizeof number);
        MDB_val data = {};
        require(mdb_txn_renew(transaction));
        require(mdb_get(transaction, m_table, &key, &data));
        const PlainSlot::Value value = PlainSlot::load(static_cast<unsigned char *>(data.mv_data));
        mdb_txn_reset(transaction);
        return value;
    }

private:
    QTemporaryDir m_directory;
    MDB_env *m_environment = nullptr;
    MDB_dbi m_table = 0;
};

void readFromDatabase(benchmark::State &state)
{
    Database database;
    unsigned char slot[PlainSlot::size] = {};
    for (int number = 0; number < InTurn::count; ++number) {
        database.write(number, slot);
    }
    MDB_txn *transaction = database.begin(MDB_RDONLY);
    mdb_txn_reset(transaction);
    InTurn::measure(
        state, [&](int number) { benchmark::DoNotOptimize(database.read(number, transaction)); });
    mdb_txn_abort(transaction);
}

void writeToDatabase(benchmark::State &state)
{
    Database database;
    unsigned char slot[PlainSlot::size] = {};
    InTurn::measure(state, [&](int number) {
        ++slot[0];
        database.write(number, slot);
    });
}

} // namespace

BENCHMARK(readFromDatabase)->Name("value/getValueLocked/peer-lmdb");
BENCHMARK(writeToDatabase)->Name("value/setValueLocked/peer-lmdb");
