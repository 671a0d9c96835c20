-- Parameters and environment.
local check = require "check"

check.equal(parameter_count(), 1)
check.equal(parameter_string(0):match("[^/]+$"), "parameters.lua")
check.equal(parameter_string(1), "")
check.equal(parameter_string(-1), "")
check.equal(#environment_get_variable("PATH") > 0, true)
check.equal(environment_get_variable("KXFILES_NO_SUCH_VARIABLE"), "")
check.equal(environment_get_variable(nil), "")
