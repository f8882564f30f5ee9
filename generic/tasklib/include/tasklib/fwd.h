#pragma once

namespace zel::tasklib {

class keep_registered;
class task_queue_ifc;

} // namespace zel::tasklib
