#pragma once

namespace zel::tasklib {

class cancellation_ifc;
class ended_state_ifc;
class keep_registered;
class scheduling_parameters_ifc;
class task_container_low_level_ifc;
class task_ifc;
class task_processor_ifc;
class task_queue_ifc;
class task_scheduler_ifc;

} // namespace zel::tasklib
