-- title: Worker processes are not recycled by requests, or too rarely
-- severity: medium
-- category: reliability
-- why: A worker process goes on however many requests it has processed.
-- fix: Recycle worker processes by the number of requests on the Recycling tab, or document the exception.
-- references: DISA IIS6 Site STIG | V-13705, WA000-WI6022 | https://stigviewer.com/stig/iis6_site/2015-06-01/finding/V-13705
-- requires: app_pool.recycles_by_requests app_pool.recycle_requests
-- columns: recycles_by_requests boolean, recycle_requests integer
-- param: requests integer 35000
select object_id, not recycles_by_requests or recycle_requests > :requests as holds,
       recycles_by_requests, recycle_requests
from app_pool
