#include "orvid/ai/secret_service_orvid_credential_store.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <gio/gio.h>
#include <libsecret/secret.h>

namespace orvid {
namespace {

const SecretSchema* credentialSchema() {
  static const SecretSchema schema = [] {
    SecretSchema result{};
    result.name = "org.orvid.Credential";
    result.flags = SECRET_SCHEMA_NONE;
    result.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
    result.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
    return result;
  }();
  return &schema;
}

// Throws the keyring's error, if any, and frees it.
void throwIfFailed(GError* error) {
  if (!error) return;
  std::unique_ptr<GError, decltype(&g_error_free)> owner(error, &g_error_free);
  throw OrvidCredentialStoreError::secretServiceFailure(error->code, error->message ? error->message : "");
}

bool hasSessionBusAddress() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) return true;
  // The systemd user bus, which GLib finds without the variable.
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::path(runtime) / "bus", error);
  }
  return false;
}

// Calls a method of the bus itself and returns its reply, or nullptr.
GVariant* callBus(GDBusConnection* bus, const char* method, GVariant* parameters, const GVariantType* replyType,
                  std::chrono::milliseconds timeout) {
  return g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                     method, parameters, replyType, G_DBUS_CALL_FLAGS_NONE,
                                     static_cast<int>(timeout.count()), nullptr, nullptr);
}

constexpr const char* kSecretServiceName = "org.freedesktop.secrets";

}  // namespace

SecretServiceOrvidCredentialStore::SecretServiceOrvidCredentialStore(std::string service)
    : service_(std::move(service)) {}

bool SecretServiceOrvidCredentialStore::isAvailable(std::chrono::milliseconds timeout) {
  // Without an address GLib would try to launch a bus of its own.
  if (!hasSessionBusAddress()) return false;
  GError* error = nullptr;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!bus) {
    if (error) g_error_free(error);
    return false;
  }
  std::unique_ptr<GDBusConnection, decltype(&g_object_unref)> busOwner(bus, &g_object_unref);

  bool available = false;
  if (GVariant* reply = callBus(bus, "NameHasOwner", g_variant_new("(s)", kSecretServiceName),
                                G_VARIANT_TYPE("(b)"), timeout)) {
    gboolean owned = FALSE;
    g_variant_get(reply, "(b)", &owned);
    g_variant_unref(reply);
    available = owned;
  }
  if (available) return true;

  if (GVariant* reply = callBus(bus, "ListActivatableNames", nullptr, G_VARIANT_TYPE("(as)"), timeout)) {
    GVariantIter* names = nullptr;
    g_variant_get(reply, "(as)", &names);
    const gchar* name = nullptr;
    while (g_variant_iter_loop(names, "&s", &name)) {
      if (g_strcmp0(name, kSecretServiceName) == 0) available = true;
    }
    g_variant_iter_free(names);
    g_variant_unref(reply);
  }
  return available;
}

std::optional<std::string> SecretServiceOrvidCredentialStore::readCredential(const std::string& reference) const {
  GError* error = nullptr;
  gchar* password = secret_password_lookup_sync(credentialSchema(), nullptr, &error, "service", service_.c_str(),
                                                "account", reference.c_str(), nullptr);
  throwIfFailed(error);
  if (!password) return std::nullopt;
  std::unique_ptr<gchar, decltype(&secret_password_free)> owner(password, &secret_password_free);
  if (!g_utf8_validate(password, -1, nullptr)) return std::nullopt;
  return std::string(password);
}

void SecretServiceOrvidCredentialStore::writeCredential(const std::string& value, const std::string& reference) {
  const std::string label = service_ + " credential " + reference;
  GError* error = nullptr;
  secret_password_store_sync(credentialSchema(), SECRET_COLLECTION_DEFAULT, label.c_str(), value.c_str(), nullptr,
                             &error, "service", service_.c_str(), "account", reference.c_str(), nullptr);
  throwIfFailed(error);
}

void SecretServiceOrvidCredentialStore::deleteCredential(const std::string& reference) {
  GError* error = nullptr;
  // Returns false when nothing was stored, which is not a failure.
  secret_password_clear_sync(credentialSchema(), nullptr, &error, "service", service_.c_str(), "account",
                             reference.c_str(), nullptr);
  throwIfFailed(error);
}

std::vector<std::string> SecretServiceOrvidCredentialStore::credentialReferences() const {
  GError* error = nullptr;
  GList* items = secret_password_search_sync(credentialSchema(), SECRET_SEARCH_ALL, nullptr, &error, "service",
                                             service_.c_str(), nullptr);
  throwIfFailed(error);
  std::vector<std::string> references;
  for (GList* item = items; item; item = item->next) {
    GHashTable* attributes = secret_retrievable_get_attributes(SECRET_RETRIEVABLE(item->data));
    if (!attributes) continue;
    if (auto* account = static_cast<const char*>(g_hash_table_lookup(attributes, "account"))) {
      references.emplace_back(account);
    }
    g_hash_table_unref(attributes);
  }
  g_list_free_full(items, g_object_unref);
  std::sort(references.begin(), references.end());
  references.erase(std::unique(references.begin(), references.end()), references.end());
  return references;
}

}  // namespace orvid
