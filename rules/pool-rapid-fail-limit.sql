-- title: Rapid-fail protection allows too many failures
-- severity: medium
-- category: reliability
-- why: The pool is not stopped before its worker processes have failed more often than the limit, or never.
-- fix: Enable rapid-fail protection and lower its number of failures, or document the exception.
-- references: DISA IIS6 Site STIG | V-13711, WA000-WI6034 | https://vaulted.io/library/disa-stigs-srgs/iis6_site/V-13711
-- requires: app_pool.rapid_fail_protection app_pool.rapid_fail_failures
-- columns: rapid_fail_protection boolean, rapid_fail_failures integer
-- param: failures integer 5
select object_id, not rapid_fail_protection or rapid_fail_failures > :failures as holds,
       rapid_fail_protection, rapid_fail_failures
from app_pool
