#ifndef VOINET_TESTS_TORTURE_SUPPORT_TORTURE_H
#define VOINET_TESTS_TORTURE_SUPPORT_TORTURE_H

#include "support/failingmemory.h"
#include "voinet/voineterror.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::torture {

/// An operation with the objects that it works on. They are made before memory runs out, and looked
/// at and destroyed when it is back.
class Scene {
  public:
    Scene() = default;
    virtual ~Scene() = default;

    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    /// The operation and nothing else: all its allocations fail, one after the other.
    virtual void run() = 0;

    /// What must hold afterwards. `isDisturbed`: an allocation failed.
    virtual void check(bool isDisturbed) = 0;
};

using MakeScene = std::function<std::unique_ptr<Scene>()>;

/// Whether the operation may throw; constructors and operations that answer a text may.
enum class Exceptions { areForbidden, areAllowed };

/// Runs an operation again and again: first undisturbed, then with its first allocation failing,
/// then with its second, and so on until it runs through without a failure, in each of the ways.
/// After each, no exception may have come out, nothing may be left behind (memory, descriptors,
/// temporary files), and what the scene checks must hold.
void survivesEveryShortage(const MakeScene& make,
                           const std::vector<Shortage>& shortages = {Shortage::once,
                                                                     Shortage::forGood},
                           Exceptions exceptions = Exceptions::areForbidden);

/// Error lines that reached the host's log since the scene's operation began.
std::size_t errorLines();

/// A scene of nothing but an operation that answers something and a check of the answer.
template <class Operation, class Check>
MakeScene sceneOf(Operation operation, Check check) {
    using Answer = decltype(operation());
    class Answering : public Scene {
      public:
        Answering(Operation operation, Check check)
            : m_operation(std::move(operation)), m_check(std::move(check)) {}
        void run() override { m_answer = m_operation(); }
        void check(bool isDisturbed) override { m_check(m_answer, isDisturbed); }

      private:
        Operation m_operation;
        Check m_check;
        Answer m_answer{};
    };
    return [operation, check] { return std::make_unique<Answering>(operation, check); };
}

/// A result must be a documented one, `expected` when nothing failed, and never "cancelled" when
/// nobody asked for that.
void expectResult(voInetError result, voInetError expected, bool isDisturbed);

/// The host's log is in detail, curl's trace included, for as long as it lives.
class DetailedLog {
  public:
    DetailedLog();
    ~DetailedLog();

    DetailedLog(const DetailedLog&) = delete;
    DetailedLog& operator=(const DetailedLog&) = delete;
};

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_TORTURE_H
