#include "common/bonjour_client.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>

#include <cstdint>
#include <cstring>
#include <list>

#include "common/avahi_poll.h"
#include "common/print_exception.h"

namespace {

// Owns an object of Avahi.
template <auto free_object>
struct Free {
  template <class Object>
  void operator()(Object* object) const {
    free_object(object);
  }
};
using Client = std::unique_ptr<AvahiClient, Free<avahi_client_free>>;
using EntryGroup = std::unique_ptr<AvahiEntryGroup, Free<avahi_entry_group_free>>;
using Browser = std::unique_ptr<AvahiServiceBrowser, Free<avahi_service_browser_free>>;
using Resolver = std::unique_ptr<AvahiServiceResolver, Free<avahi_service_resolver_free>>;
using StringList = std::unique_ptr<AvahiStringList, Free<avahi_string_list_free>>;

SocketAddress AddressOf(const AvahiAddress& found, std::uint16_t port, AvahiIfIndex interface) {
  if (found.proto == AVAHI_PROTO_INET) {
    struct sockaddr_in raw = {};
    raw.sin_family = AF_INET;
    raw.sin_addr.s_addr = found.data.ipv4.address;
    SocketAddress address(reinterpret_cast<const struct sockaddr*>(&raw));
    address.SetPort(port);
    return address;
  }
  struct sockaddr_in6 raw = {};
  raw.sin6_family = AF_INET6;
  std::memcpy(&raw.sin6_addr, found.data.ipv6.address, sizeof raw.sin6_addr);
  SocketAddress address(reinterpret_cast<const struct sockaddr*>(&raw));
  address.SetPort(port);
  if (address.IsLinkLocal()) address.SetScopeId(static_cast<unsigned>(interface));
  return address;
}

TxtMap MapOf(const AvahiStringList* texts) {
  TxtMap map;
  for (; texts != nullptr; texts = texts->next) {
    const std::string text(reinterpret_cast<const char*>(texts->text), texts->size);
    const std::size_t equals = text.find('=');
    if (equals != std::string::npos) map[text.substr(0, equals)] = text.substr(equals + 1);
  }
  return map;
}

}  // namespace

// All that belongs to one conversation with the daemon.
class BonjourClient::Core {
 public:
  explicit Core(BonjourClientListener& listener) : listener(listener) {
    client.reset(avahi_client_new(
        AvahiPollOfLoop(), static_cast<AvahiClientFlags>(0),
        // The next Restart renews everything, so a change of state needs no answer.
        [](AvahiClient*, AvahiClientState, void*) {}, nullptr, nullptr));
    if (!client) listener.GotError("Unable to create Avahi client\n");
  }
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  void Publish(const std::string& name, const std::string& type, const std::string& domain,
               int port, const TxtMap& txt);
  void Browse(const std::string& type);

 private:
  static void Browsed(AvahiServiceBrowser* browser, AvahiIfIndex interface, AvahiProtocol protocol,
                      AvahiBrowserEvent event, const char* name, const char* type,
                      const char* domain, AvahiLookupResultFlags flags, void* object);
  static void Resolved(AvahiServiceResolver* resolver, AvahiIfIndex interface,
                       AvahiProtocol protocol, AvahiResolverEvent event, const char* name,
                       const char* type, const char* domain, const char* host_name,
                       const AvahiAddress* address, std::uint16_t port, AvahiStringList* txt,
                       AvahiLookupResultFlags flags, void* object);
  // Runs a listener's operation on behalf of the library, which no exception may cross.
  template <class Operation>
  void Tell(Operation operation) {
    try {
      operation();
    } catch (...) {
      PrintCurrentException();
    }
  }
  void TellUnresolved(const char* name) {
    Tell([&] {
      listener.GotError(std::string("Unable to resolve service: ") + name + ": " +
                        avahi_strerror(avahi_client_errno(client.get())) + "\n");
    });
  }

  BonjourClientListener& listener;
  // Members are destroyed from the last to the first, so these go before the client.
  Client client;
  EntryGroup group;
  std::list<Browser> browsers;
  std::list<Resolver> resolvers;  // under way
};

void BonjourClient::Core::Publish(const std::string& name, const std::string& type,
                                  const std::string& domain, int port, const TxtMap& txt) {
  if (!client) return;
  if (!group)
    group.reset(avahi_entry_group_new(
        client.get(), [](AvahiEntryGroup*, AvahiEntryGroupState, void*) {}, nullptr));
  if (!group) return;
  // The library adds each text at the front.
  StringList texts;
  for (auto pair = txt.rbegin(); pair != txt.rend(); ++pair) {
    const std::string text = pair->first + "=" + pair->second;
    texts.reset(avahi_string_list_add_arbitrary(
        texts.release(), reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  }
  if (avahi_entry_group_add_service_strlst(group.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                           static_cast<AvahiPublishFlags>(0), name.c_str(),
                                           type.c_str(), domain.c_str(), nullptr,
                                           static_cast<std::uint16_t>(port), texts.get()) < 0)
    listener.GotError("Unable to add service type: " + type);
  else if (avahi_entry_group_commit(group.get()) < 0)
    listener.GotError("Unable to register service type: " + type);
}

void BonjourClient::Core::Browse(const std::string& type) {
  if (!client) return;
  Browser browser(avahi_service_browser_new(client.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                            type.c_str(), "local", static_cast<AvahiLookupFlags>(0),
                                            Browsed, this));
  if (browser)
    browsers.push_back(std::move(browser));
  else
    listener.GotError("Unable to browse service type: " + type);
}

void BonjourClient::Core::Browsed(AvahiServiceBrowser*, AvahiIfIndex interface,
                                  AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                                  const char* type, const char* domain, AvahiLookupResultFlags,
                                  void* object) {
  Core& core = *static_cast<Core*>(object);
  if (event == AVAHI_BROWSER_NEW) {
    Resolver resolver(avahi_service_resolver_new(core.client.get(), interface, protocol, name, type,
                                                 domain, protocol, static_cast<AvahiLookupFlags>(0),
                                                 Resolved, object));
    if (resolver)
      core.resolvers.push_back(std::move(resolver));
    else
      core.TellUnresolved(name);
  } else if (event == AVAHI_BROWSER_REMOVE) {
    core.Tell([&] { core.listener.ServiceRemoved(name, type, domain); });
  }
}

void BonjourClient::Core::Resolved(AvahiServiceResolver* resolver, AvahiIfIndex interface,
                                   AvahiProtocol, AvahiResolverEvent event, const char* name,
                                   const char* type, const char* domain, const char* host_name,
                                   const AvahiAddress* address, std::uint16_t port,
                                   AvahiStringList* txt, AvahiLookupResultFlags, void* object) {
  Core& core = *static_cast<Core*>(object);
  if (event == AVAHI_RESOLVER_FOUND)
    core.Tell([&] {
      core.listener.ServiceFound(name, type, domain, interface, host_name,
                                 AddressOf(*address, port, interface), MapOf(txt));
    });
  else
    core.TellUnresolved(name);
  core.resolvers.remove_if([&](const Resolver& owner) { return owner.get() == resolver; });
}

BonjourClient::BonjourClient(BonjourClientListener& listener) : listener(listener) {}
BonjourClient::~BonjourClient() = default;

void BonjourClient::Restart() {
  core.reset();
  core = std::make_unique<Core>(listener);
}

void BonjourClient::Publish(const std::string& name, const std::string& type,
                            const std::string& domain, int port, const TxtMap& txt) {
  if (core) core->Publish(name, type, domain, port, txt);
}

void BonjourClient::Browse(const std::string& type) {
  if (core) core->Browse(type);
}
