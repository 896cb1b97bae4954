// BridgeAnchor routes a call made by the framework (a file layer thread, a disk-backed array) to a
// member function of the object that owns the anchor. The framework keeps only a pointer to the
// anchor; the owner detaches it before it goes away, after which calls are refused (return false).
// `call` may be made from any thread; the hook is guarded so that a detach waits for a call in flight.
// Calls through one anchor are serialised, so the owner's member must not call through the same
// anchor again (nor detach it) while it runs.
#pragma once

#include <memory>
#include <mutex>
#include <typeinfo>

#include "framework/Messages.h"

// The call target held by an anchor: one argument, passed by address. `argumentType` names the
// argument the target expects, so that a call with the wrong type is refused instead of
// reinterpreting memory.
class BridgeHook {
  public:
    virtual ~BridgeHook() = default;
    virtual bool invoke(void const* argument) = 0;
    virtual std::type_info const& argumentType() const = 0;
};

template <class Owner, class Arg>
class BridgeMemberHook : public BridgeHook {
  public:
    using Member = bool (Owner::*)(Arg const&);
    BridgeMemberHook(Owner* owner, Member member) : m_owner(owner), m_member(member) {}
    bool invoke(void const* argument) override {
        return (m_owner->*m_member)(*static_cast<Arg const*>(argument));
    }
    std::type_info const& argumentType() const override { return typeid(Arg); }

  private:
    Owner* m_owner;
    Member m_member;
};

template <class Owner, class Arg>
class BridgeConstMemberHook : public BridgeHook {
  public:
    using Member = bool (Owner::*)(Arg const&) const;
    BridgeConstMemberHook(Owner const* owner, Member member) : m_owner(owner), m_member(member) {}
    bool invoke(void const* argument) override {
        return (m_owner->*m_member)(*static_cast<Arg const*>(argument));
    }
    std::type_info const& argumentType() const override { return typeid(Arg); }

  private:
    Owner const* m_owner;
    Member m_member;
};

class BridgeAnchor {
  public:
    BridgeAnchor() = default;
    template <class Owner, class Arg>
    BridgeAnchor(Owner* owner, bool (Owner::*member)(Arg const&))
        : m_hook(std::make_unique<BridgeMemberHook<Owner, Arg>>(owner, member)) {}
    template <class Owner, class Arg>
    BridgeAnchor(Owner const* owner, bool (Owner::*member)(Arg const&) const)
        : m_hook(std::make_unique<BridgeConstMemberHook<Owner, Arg>>(owner, member)) {}
    BridgeAnchor(BridgeAnchor const&) = delete;
    BridgeAnchor& operator=(BridgeAnchor const&) = delete;

    // Calls the owner's member with the argument; false when detached, when the argument is not of
    // the type the anchor was built for (reported), or when the member says so.
    template <class Arg>
    bool call(Arg const& argument) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_hook) return false;
        if (m_hook->argumentType() != typeid(Arg)) {
            errorMsg("BridgeAnchor::call: argument %s, anchor expects %s\n", typeid(Arg).name(),
                     m_hook->argumentType().name());
            return false;
        }
        return m_hook->invoke(&argument);
    }
    // Refuses every later call; waits for a call in flight to return.
    void detach() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hook.reset();
    }
    bool attached() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_hook != nullptr;
    }

  private:
    mutable std::mutex m_mutex;
    std::unique_ptr<BridgeHook> m_hook;
};
