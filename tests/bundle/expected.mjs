// What the macOS bundle must be, down to its records. The symbols that it takes from elsewhere are listed
// in undefined-symbols.txt.
//
// In type encodings BOOL stands for the slice's own: a signed char on x86_64, a bool on arm64.

import fs from 'node:fs';

const { version } = JSON.parse(fs.readFileSync(new URL('../../package.json', import.meta.url), 'utf8'));

export const slices = {
  x86_64: { minimumVersion: '10.10', boolEncoding: 'c' },
  arm64: { minimumVersion: '11.0', boolEncoding: 'B' },
};

/** Where each library of undefined-symbols.txt is on a Mac. */
export const libraries = {
  AppKit: '/System/Library/Frameworks/AppKit.framework/Versions/C/AppKit',
  CoreFoundation: '/System/Library/Frameworks/CoreFoundation.framework/Versions/A/CoreFoundation',
  Foundation: '/System/Library/Frameworks/Foundation.framework/Versions/C/Foundation',
  QuartzCore: '/System/Library/Frameworks/QuartzCore.framework/Versions/A/QuartzCore',
  'libc++': '/usr/lib/libc++.1.dylib',
  libobjc: '/usr/lib/libobjc.A.dylib',
  libSystem: '/usr/lib/libSystem.B.dylib',
};

/** Load commands that a bundle may have, whichever linker made it. */
export const loadCommands = new Set([
  'LC_SEGMENT_64',
  'LC_DYLD_INFO_ONLY',
  'LC_DYLD_CHAINED_FIXUPS',
  'LC_DYLD_EXPORTS_TRIE',
  'LC_SYMTAB',
  'LC_DYSYMTAB',
  'LC_UUID',
  'LC_VERSION_MIN_MACOSX',
  'LC_BUILD_VERSION',
  'LC_SOURCE_VERSION',
  'LC_LOAD_DYLIB',
  'LC_FUNCTION_STARTS',
  'LC_DATA_IN_CODE',
  'LC_CODE_SIGNATURE',
]);

/** Load commands without which a Mac refuses the file or cannot tell its crash reports. */
export const neededCommands = ['LC_UUID', 'LC_CODE_SIGNATURE'];

export const functions = [
  'PLAskUserToShareEmail',
  'PLCanShowReleaseNotesWindow',
  'PLEnableDebugLogging',
  'PLGetLastUserEmailSharingResponse',
  'PLReportUsageEvent',
  'PLRequestAuthorizationCode',
  'PLShowReleaseNotesWindow',
  'PLShowReleaseNotesWindowIfNeeded',
];

export const constants = {
  AFXProvisioningServiceName: 'com.pellmar.ProvisioningService',
  AFXProvisioningServiceURLsToOpenByRecoveryOptionIndexErrorKey:
    'urls to open by recovery option index',
  AFXProvisioningServiceOmitPresentationErrorKey: 'omit presentation',
  AFXProvisioningDebugNotificationName: 'com.pellmar.debug-log-notification',
  AFXProvisioningDebugMessageKey: 'com.pellmar.debug-log-message',
  AFXProvisioningDebugAppNameKey: 'com.pellmar.debug-log-app-name',
  PLVendorAuthScopeApplicationAccess: 'application.access',
};

/** A variable, not a constant. */
export const versionMarker = { name: '__PLV', value: `__plv__${version}` };

/** Where a field is a pointer into the bundle, the section that it leads to. */
export const moduleRecord = {
  version: 85,
  flags: 0,
  handle: null,
  file: '../pellmar-lib-mapping',
  register: '__text',
  registerInContext: null,
  name: 'pellmar',
  privateData: null,
  link: null,
};

/** What the functions that run when the file is mapped call outside the bundle: nothing else. */
export const initializers = [['___cxa_atexit'], ['_node_module_register']];

export const pictures = [
  'envelope-light.tiff',
  'envelope-dark.tiff',
  'close-light.tiff',
  'close-dark.tiff',
];

/** Bytes that a slice may have beside the pictures. */
export const sizeLimit = 256 * 1024;

/** In the order of their declaration; methods as [selector, types, extended types]. */
export const protocols = [
  {
    name: 'AFXConnectionChecker',
    adopts: ['NSObject'],
    methods: [['checkConnectionWithCallback:', 'v24@0:8@?16', 'v24@0:8@?<v@?BOOL>16']],
  },
  {
    name: 'AFXUsageReportingService',
    adopts: ['NSObject'],
    methods: [
      [
        'reportUsageEvent:eventInfo:',
        'v32@0:8@16@24',
        'v32@0:8@"NSString"16@"NSDictionary"24',
      ],
    ],
  },
  {
    name: 'AFXCustomerPermissionsService',
    adopts: ['NSObject'],
    methods: [
      ['fetchAskingPermissionStatus:', 'v24@0:8@?16', 'v24@0:8@?<v@?BOOL@"NSString">16'],
      [
        'updateAllowedCustomerEmail:callback:',
        'v32@0:8@16@?24',
        'v32@0:8@"NSString"16@?<v@?BOOL>24',
      ],
    ],
  },
  {
    name: 'AFXAppReleaseNotesPresenter',
    adopts: ['NSObject'],
    methods: [
      ['showReleaseNotesForAppWithCallback:', 'v24@0:8@?16', 'v24@0:8@?<v@?@"NSError">16'],
    ],
  },
  {
    name: 'AFXAPIVersioning',
    adopts: ['NSObject'],
    methods: [
      ['xpcAPIVersionWithCallback:', 'v24@0:8@?16', 'v24@0:8@?<v@?@"NSString"@"NSError">16'],
    ],
  },
  {
    name: 'AFXVendorAuthCodeProvider',
    adopts: ['NSObject'],
    methods: [
      [
        'provideAuthCodeWithClientID:scope:callback:',
        'v40@0:8@16@24@?32',
        'v40@0:8@"NSString"16@"NSArray"24@?<v@?@"NSString"@"NSError">32',
      ],
    ],
  },
  {
    name: 'AFXProvisioningService',
    adopts: [
      'AFXConnectionChecker',
      'AFXUsageReportingService',
      'AFXCustomerPermissionsService',
      'AFXAppReleaseNotesPresenter',
      'AFXAPIVersioning',
      'AFXVendorAuthCodeProvider',
    ],
    methods: [],
  },
];

/** Protocols of the system that the compiler copies into whatever refers to them. */
export const systemProtocols = ['NSObject'];

const noArguments = '@16@0:8';
const action = 'v24@0:8@16';

/** Selectors and type encodings of a property's two accessors. */
function accessors(name, type = '@') {
  const setter = `set${name[0].toUpperCase()}${name.slice(1)}:`;
  return { [name]: `${type}16@0:8`, [setter]: `v24@0:8${type}16` };
}

const viewProperties = {
  iconView: 'NSImageView',
  envelopeView: 'NSImageView',
  titleField: 'NSTextField',
  descriptionField: 'NSTextField',
  informativeField: 'NSTextField',
  closeButton: 'NSButton',
  cancelButton: 'NSButton',
  okButton: 'NSButton',
};

/**
 * Classes. `methods` are the contract between the classes and with the runtime; `helpers` are a class's
 * own, whose encodings nobody relies on.
 */
export const classes = [
  {
    name: 'AFXPermissionWindow',
    superclass: 'NSWindow',
    methods: {
      'initWithContentRect:': '@48@0:8{CGRect={CGPoint=dd}{CGSize=dd}}16',
      canBecomeKeyWindow: 'BOOL16@0:8',
      canBecomeMainWindow: 'BOOL16@0:8',
    },
    helpers: [],
    classMethods: [],
    properties: [],
  },
  {
    name: 'AFXPermissionWindowController',
    superclass: 'NSWindowController',
    methods: {
      'initWithUserEmail:completionHandler:': '@32@0:8@16@?24',
      dealloc: 'v16@0:8',
      'showWindow:': action,
      'endWithPermissionChoice:': 'v24@0:8Q16',
      'askLater:': action,
      'allowEmailSharing:': action,
      'forbidEmailSharing:': action,
      _appName: noArguments,
      _defaultTextField: noArguments,
      _titleField: noArguments,
      _descriptionField: noArguments,
      _informativeField: noArguments,
      _iconView: noArguments,
      _envelopeView: noArguments,
      '_imagesContainerViewWithIconView:envelopeView:': '@32@0:8@16@24',
      _closeButton: noArguments,
      _pixelCloseButton: noArguments,
      _cancelButton: noArguments,
      _okButton: noArguments,
      setupUI: 'v16@0:8',
      setupAppearance: 'v16@0:8',
      'observeValueForKeyPath:ofObject:change:context:': 'v48@0:8@16@24@32^v40',
      updateAccordingToAppearance: 'v16@0:8',
      ...accessors('userEmail'),
      ...accessors('completion', '@?'),
      ...Object.assign({}, ...Object.keys(viewProperties).map((name) => accessors(name))),
    },
    helpers: ['_shownAppName', '_buttonWithFrame:action:', '_pushButtonWithTitle:action:'],
    classMethods: [],
    properties: [
      ['userEmail', 'T@"NSString",C,N,V_userEmail'],
      ['completion', 'T@?,C,N,V_completion'],
      ...Object.entries(viewProperties).map(([name, type]) => [name, `T@"${type}",&,N,V_${name}`]),
    ],
  },
  {
    name: 'AFXServiceAccessor',
    superclass: 'NSObject',
    methods: {},
    helpers: [
      'initAccessor',
      'dealloc',
      'accessService:',
      'accessService:errorHandler:',
      'check:by:',
      'admitWaitersOfGeneration:',
      'openedConnection',
      'takenWaiters',
      'dropConnectionOfGeneration:',
      'dropUncheckedConnectionOfGeneration:',
      'dropConnectionOfGeneration:isHung:',
    ],
    classMethods: [],
    properties: [],
  },
  {
    name: 'AFXUsageReporter',
    superclass: 'NSObject',
    methods: {},
    helpers: [
      'initReporter',
      'dealloc',
      'reportUsageEvent:eventInfo:',
      'checkConnection',
      'openConnectionUnlessTooEarly',
      'noteTaken:ofGeneration:',
      'dropConnectionOfGeneration:',
    ],
    classMethods: [],
    properties: [],
  },
];

export const categories = [
  {
    name: 'Extensions',
    class: 'NSColor',
    instanceMethods: {},
    classMethods: {
      'kv_colorWithRGBAHex:colorSpace:': '@28@0:8I16@20',
      'kv_colorWithRGBAHex:': '@20@0:8I16',
      'kv_colorWithRGBHex:colorSpace:': '@28@0:8I16@20',
      'kv_colorWithRGBHex:': '@20@0:8I16',
      'kv_colorWithSRGBHex:': '@20@0:8I16',
      'kv_colorWithDeviceRGBHex:': '@20@0:8I16',
      'kv_colorWithSRGBHexString:alpha:': '@32@0:8@16d24',
    },
  },
  {
    name: 'Extensions',
    class: 'NSFont',
    instanceMethods: {},
    classMethods: {
      afx_appKitKnowsNSFontWeight: 'BOOL16@0:8',
      'afx_legacySystemFontNameForWeight:': '@24@0:8Q16',
      'afx_appKitFontWeightForWeight:': 'd24@0:8Q16',
      'afx_systemFontOfSize:weight:': '@32@0:8d16Q24',
      'afx_systemFontOfSize:weightIfAvailable:': '@32@0:8d16Q24',
      'afx_robotoMonoFontOfSize:weight:': '@32@0:8d16Q24',
    },
  },
  {
    name: 'AFXEnxtensions',
    class: 'NSView',
    instanceMethods: {
      'addVisualFormatConstraints:views:metrics:': 'v40@0:8@16@24@32',
      'addCenterXContraintForSubviews:': 'v24@0:8@16',
    },
    classMethods: {},
  },
];
