#include "benchmarks/peers/bus_cases.h"

#include <Poco/BasicEvent.h>
#include <Poco/Delegate.h>
#include <Poco/NObserver.h>
#include <Poco/NotificationCenter.h>

namespace zel::benchmarks {

namespace {

class basic_event {
    struct receiver {
        counting_handler handler;
        void receive(const void*, const message& sent) {
            handler(sent.path, sent.data, sent.parameters);
        }
    };

public:
    using token = std::unique_ptr<receiver>;

    token subscribe(const std::string&, counting_handler handler) {
        token subscribed(new receiver{handler});
        event_ += Poco::delegate(subscribed.get(), &receiver::receive);
        return subscribed;
    }

    void broadcast(const std::string& path, const event_data& data,
                   const routing_parameters& parameters) {
        const message sent{path, data, parameters};
        event_(this, sent);
    }

private:
    Poco::BasicEvent<const message> event_;
};

class notification_center {
    struct notification : Poco::Notification {
        explicit notification(const message& m) : sent(m) {}
        message sent;
    };

    struct receiver {
        counting_handler handler;
        void receive(const Poco::AutoPtr<notification>& received) {
            const message& sent = received->sent;
            handler(sent.path, sent.data, sent.parameters);
        }
    };

public:
    using token = std::unique_ptr<receiver>;

    token subscribe(const std::string&, counting_handler handler) {
        token subscribed(new receiver{handler});
        center_.addObserver(
            Poco::NObserver<receiver, notification>(*subscribed, &receiver::receive));
        return subscribed;
    }

    void broadcast(const std::string& path, const event_data& data,
                   const routing_parameters& parameters) {
        center_.postNotification(new notification({path, data, parameters}));
    }

private:
    Poco::NotificationCenter center_;
};

[[maybe_unused]] const bool listed =
    compare_signal<basic_event>("poco_basic_event") &&
    compare_signal<notification_center>("poco_notification_center");

} // namespace

} // namespace zel::benchmarks
