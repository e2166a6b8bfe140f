-- title: Anonymous users may write
-- severity: high
-- category: security
-- why: Anyone who finds the site can leave files on it, fill its disk or use it to pass files on.
-- fix: Take write permission from the home directory and the virtual directories, or anonymous access from the site.
-- requires: ftp_site.allows_anonymous ftp_site.may_write ftp_directory.may_write
-- columns: anonymous_user text, path text, may_write boolean, writable_directories integer, first_directory text
select s.object_id,
       s.allows_anonymous and case when s.may_write or d.writable > 0 then true
                                   when s.may_write is null or d.unknown > 0 or s.directories_incomplete then null
                                   else false end as holds,
       s.anonymous_user, s.path, s.may_write,
       coalesce(d.writable, 0) as writable_directories, coalesce(d.first_directory, '') as first_directory
from ftp_site s
left join (select server, site_identifier,
                  count(case when may_write then 1 end) as writable,
                  count(case when may_write is null then 1 end) as unknown,
                  min(case when may_write then path end) as first_directory
           from ftp_directory group by server, site_identifier) d
  on d.server = s.server and d.site_identifier = s.identifier
