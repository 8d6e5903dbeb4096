#include "debug/registerable.hpp"

#include <qn/assertion.hpp>
#include <qn/default_services.hpp>

namespace quarn_vi::debug {

QN::Service* Registerable::service() {
    client_assertion_failed("quarn_vi/debug/registerable", 47, "This code should be unreachable!");
    return nullptr;
}

bool Registerable::enabled() {
    return QN::DefaultServices::debugServices().isRegistered(service());
}

void Registerable::setEnabled(bool value) {
    QN::ServiceContainer& services = QN::DefaultServices::debugServices();
    if (value) {
        if (!services.isRegistered(service()))
            services.addService(service());
    } else if (services.isRegistered(service())) {
        services.removeService(service());
    }
}

} // namespace quarn_vi::debug
