-- Schema of the workflow database used by libnorvadatalayer.
--
-- Safe to load again and again: every object is created only when missing,
-- and no existing row is touched.
--
-- Conventions:
--   * short texts are VARCHAR(1023): the library reads them into
--     1024-character buffers, so nothing longer may be stored;
--   * text primary keys are VARCHAR(255) (InnoDB key length limit with utf8mb4);
--   * integer primary keys have no AUTO_INCREMENT: the library hands out ids
--     itself (see MAXID);
--   * every non-key column is nullable: the library writes only the columns
--     a caller has set;
--   * indexes on VARCHAR(1023) columns are prefix indexes.

SET NAMES utf8mb4;

CREATE DATABASE IF NOT EXISTS jdfdb
  CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;

USE jdfdb;

-- Queue entries and their JDF tickets.
CREATE TABLE IF NOT EXISTS JDFTICKET (
  QENTRYID              VARCHAR(255)  NOT NULL,
  PREVIEWCACHEDFILEPATH VARCHAR(1023) NULL DEFAULT NULL,
  PREVIEWREMOTEURL      VARCHAR(1023) NULL DEFAULT NULL,
  JDF                   LONGTEXT      NULL DEFAULT NULL,
  HOLDDEVID             VARCHAR(1023) NULL DEFAULT NULL,
  JMFRETURL             VARCHAR(1023) NULL DEFAULT NULL,
  UPLOADURL             VARCHAR(1023) NULL DEFAULT NULL,
  SENDERID              VARCHAR(1023) NULL DEFAULT NULL,
  SUBTIME               DATETIME      NULL DEFAULT NULL,
  LASTUPDATETIME        DATETIME      NULL DEFAULT NULL,
  QSUBSPARAMS           LONGTEXT      NULL DEFAULT NULL,
  STATUSMSG             VARCHAR(1023) NULL DEFAULT NULL,
  STATUS                INT           NULL DEFAULT NULL,
  STATE                 INT           NULL DEFAULT NULL,
  JOBID                 VARCHAR(1023) NULL DEFAULT NULL,
  JOBPARTID             VARCHAR(1023) NULL DEFAULT NULL,
  PREVSTATE             INT           NULL DEFAULT NULL,  -- state before the last state change
  JDFSENDSTATUS         INT           NULL DEFAULT NULL,  -- whether the JDF has been sent on
  PRIMARY KEY (QENTRYID),
  KEY IDX_JDFTICKET_HOLDDEVID (HOLDDEVID(191)),
  KEY IDX_JDFTICKET_JOBID (JOBID(191)),
  KEY IDX_JDFTICKET_JDFSENDSTATUS (JDFSENDSTATUS)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

-- Content files of a job.
CREATE TABLE IF NOT EXISTS CONTENT (
  CONTENTID             INT           NOT NULL,
  RUN_ID                VARCHAR(1023) NULL DEFAULT NULL,
  QENTRYID              VARCHAR(1023) NULL DEFAULT NULL,
  REMOTEURL             VARCHAR(1023) NULL DEFAULT NULL,
  CACFILEPATH           VARCHAR(1023) NULL DEFAULT NULL,
  CACHESTAT             INT           NULL DEFAULT NULL,
  DISPLAYNAME           VARCHAR(1023) NULL DEFAULT NULL,
  NPAGES                INT           NULL DEFAULT NULL,
  FILETYPE              VARCHAR(1023) NULL DEFAULT NULL,
  CACHEDATE             DATETIME      NULL DEFAULT NULL,
  LASTMODDATE           DATETIME      NULL DEFAULT NULL,
  PREVIEWREMOTEURL      VARCHAR(1023) NULL DEFAULT NULL,
  PREVIEWCACFILEPATH    VARCHAR(1023) NULL DEFAULT NULL,
  PRIMARY KEY (CONTENTID),
  KEY IDX_CONTENT_QENTRYID (QENTRYID(191))
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

-- Device jobs: only the key is used.
CREATE TABLE IF NOT EXISTS DEVICEJOB (
  TRACKID               INT           NOT NULL,
  PRIMARY KEY (TRACKID)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

-- JMF status subscriptions.
CREATE TABLE IF NOT EXISTS STATSSUBS (
  ID                    INT           NOT NULL,
  REFID                 VARCHAR(1023) NULL DEFAULT NULL,
  URL                   VARCHAR(1023) NULL DEFAULT NULL,
  STATSUBS              LONGTEXT      NULL DEFAULT NULL,
  LASTSIG               LONGTEXT      NULL DEFAULT NULL,
  -- The library never writes LASTUPDATE; its due-subscription query compares
  -- CURRENT_TIMESTAMP >= LASTUPDATE, so a new row gets the insertion time.
  LASTUPDATE            DATETIME      NULL DEFAULT CURRENT_TIMESTAMP,
  DEVDETLEVEL           VARCHAR(1023) NULL DEFAULT NULL,
  JOBDETAIL             VARCHAR(1023) NULL DEFAULT NULL,
  QUEUEINFO             INT           NULL DEFAULT NULL,
  EMPLOYEINFO           INT           NULL DEFAULT NULL,
  DEVICEID              VARCHAR(1023) NULL DEFAULT NULL,
  QENTRYID              VARCHAR(1023) NULL DEFAULT NULL,
  JOBID                 VARCHAR(1023) NULL DEFAULT NULL,
  JOBPARTID             VARCHAR(1023) NULL DEFAULT NULL,
  REPEATSTEP            INT           NULL DEFAULT NULL,
  REPEATTIME            INT           NULL DEFAULT NULL,
  RESPONSE              LONGTEXT      NULL DEFAULT NULL,
  SENDERID              VARCHAR(1023) NULL DEFAULT NULL,
  LASTSIGSENDSTATUS     INT           NULL DEFAULT NULL,  -- 0/1: last signal sent
  PRIMARY KEY (ID),
  KEY IDX_STATSSUBS_DEVICEID (DEVICEID(191))
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

-- The subscriptions of a queue entry, found by `norva purge`; created here
-- as well for databases made before the index existed.
CREATE INDEX IF NOT EXISTS IDX_STATSSUBS_QENTRYID ON STATSSUBS (QENTRYID(191));

-- Servers that drive the output devices.
CREATE TABLE IF NOT EXISTS SERVER (
  SERVERID              INT           NOT NULL,
  COMPNAME              VARCHAR(1023) NULL DEFAULT NULL,
  STATMSG               VARCHAR(1023) NULL DEFAULT NULL,
  STATE                 INT           NULL DEFAULT NULL,
  LOGINPWD              VARCHAR(1023) NULL DEFAULT NULL,
  LOGINSERNAME          VARCHAR(1023) NULL DEFAULT NULL,  -- spelled so on purpose
  SERIALNO              VARCHAR(1023) NULL DEFAULT NULL,
  VERSION               VARCHAR(1023) NULL DEFAULT NULL,
  STYPE                 INT           NULL DEFAULT NULL,
  PRIMARY KEY (SERVERID)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

-- Output devices.
CREATE TABLE IF NOT EXISTS DEVICE (
  SERVERID              INT           NULL DEFAULT NULL,
  DEVICEID              VARCHAR(255)  NOT NULL,
  DEVCAPS               LONGTEXT      NULL DEFAULT NULL,
  SUBURL                VARCHAR(1023) NULL DEFAULT NULL,
  DEVINDEX              INT           NULL DEFAULT NULL,
  INTERNAME             VARCHAR(1023) NULL DEFAULT NULL,
  DISPLAYNAME           VARCHAR(1023) NULL DEFAULT NULL,
  STATUS                INT           NULL DEFAULT NULL,
  STATUSMSG             VARCHAR(1023) NULL DEFAULT NULL,
  DEVCONDITION          VARCHAR(1023) NULL DEFAULT NULL,
  `CONDITION`           INT           NULL DEFAULT NULL,  -- reserved word: quote it
  DEVICEOPMODE          INT           NULL DEFAULT NULL,
  LASTUPDATETIME        DATETIME      NULL DEFAULT NULL,
  PRIMARY KEY (DEVICEID),
  KEY IDX_DEVICE_SERVERID (SERVERID)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

-- Log entries: only the key is used.
CREATE TABLE IF NOT EXISTS LOG (
  LOGID                 INT           NOT NULL,
  PRIMARY KEY (LOGID)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

-- High-water marks of the generated ids, one column per table, in a single
-- row. The library reads and updates that row but never creates it.
CREATE TABLE IF NOT EXISTS MAXID (
  JDFTICKET             INT           NOT NULL DEFAULT 0,
  CONTENT               INT           NOT NULL DEFAULT 0,
  DEVICEJOB             INT           NOT NULL DEFAULT 0,
  STATSSUBS             INT           NOT NULL DEFAULT 0,
  SERVER                INT           NOT NULL DEFAULT 0,
  DEVICE                INT           NOT NULL DEFAULT 0,
  LOG                   INT           NOT NULL DEFAULT 0
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_general_ci;

INSERT INTO MAXID (JDFTICKET, CONTENT, DEVICEJOB, STATSSUBS, SERVER, DEVICE, LOG)
  SELECT 0, 0, 0, 0, 0, 0, 0 FROM DUAL
  WHERE NOT EXISTS (SELECT 1 FROM MAXID);

-- The library's compiled-in account: TCP connections match '%', the socket
-- 'localhost'. Its password is known to everyone: a server that others can
-- reach needs an account of its own (norva init-db --user), see the README.
-- It gets the four rights the library uses and nothing else (an account made
-- by an older version of this file keeps what it had: norva check warns).
CREATE USER IF NOT EXISTS 'lumbo27'@'%' IDENTIFIED BY 'lumbo27';
CREATE USER IF NOT EXISTS 'lumbo27'@'localhost' IDENTIFIED BY 'lumbo27';
GRANT SELECT, INSERT, UPDATE, DELETE ON jdfdb.* TO 'lumbo27'@'%';
GRANT SELECT, INSERT, UPDATE, DELETE ON jdfdb.* TO 'lumbo27'@'localhost';
