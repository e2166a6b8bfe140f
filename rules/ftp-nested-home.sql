-- title: A home directory contains that of another site
-- severity: low
-- category: housekeeping
-- why: The users of one site see the files of the other.
-- fix: Move one of the directories, or make the sites one.
-- requires: ftp_site.path
-- columns: path text identifying, contains text
with homes as (
  select object_id, server, path, fold(path) || case when path <> '' and substr(path, length(path), 1) <> '\' then '\' else '' end as folded
  from ftp_site where path is null or path <> ''),
following as (
  select object_id, path, folded,
         lead(folded) over (partition by server order by folded, object_id) as next,
         lead(path) over (partition by server order by folded, object_id) as contains
  from homes where path is not null)
select object_id, next <> folded and starts_with(next, folded) as holds, path, contains
from following where next is not null
union all
select object_id, null, path, null from homes where path is null
